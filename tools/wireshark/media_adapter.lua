-- Wireshark dissector of the datagrams between hosts and media adapters (UDP port 14001): every field, command and
-- element by name, requests matched with their answers, what was sent again and what is missing marked.
-- The datagrams are described in docs/protocol.md. Secrets are shown as the bytes that they are on the wire.
local PORT = 14001
local HEADER_SIZE, ITEM_HEADER_SIZE = 44, 4
local HOST, DEVICE = 2, 1

local GET_CONFIGURATION, TEST_REPORT, DATA, ACKNOWLEDGEMENT, START_TRANSFER = 5, 11, 41, 42, 40
local commands = {
  [1] = "Search", [2] = "Search reply",
  [3] = "SetConfiguration", [4] = "SetConfiguration reply",
  [5] = "GetConfiguration", [6] = "GetConfiguration reply",
  [7] = "SetTest", [8] = "SetTest reply",
  [11] = "TestReport",
  [32] = "RFAConnect", [33] = "RFAConnect reply",
  [34] = "RFADisconnect", [35] = "RFADisconnect reply",
  [36] = "RFAReadData", [37] = "RFAReadData reply",
  [38] = "RFAWriteData", [39] = "RFAWriteData reply",
  [40] = "RFAStartTransfer", [41] = "TransferData", [42] = "TransferAcknowledgement",
}
local statuses = {
  [0] = "Operation successful", [1] = "Invalid element size", [2] = "Invalid element ID", [3] = "Invalid password",
  [4] = "Packet length is too large", [5] = "Media Adapter is busy", [6] = "Media Adapter is not ready",
  [7] = "Not connected to Media Adapter", [8] = "Protocol error", [9] = "One or more packets were not received",
  [49] = "Mass Storage Device cannot be accessed",
}

-- Settings and the other elements: form, smallest and largest size, name.
local elements = {
  ["0.0"] = {"text", 0, 16}, ["0.1"] = {"bytes", 0, 4}, ["0.2"] = {"text", 0, 16, "device name"},
  ["1.0"] = {"address", 4, 4, "IPv4 address"}, ["1.1"] = {"address", 4, 4}, ["1.2"] = {"address", 4, 4},
  ["1.3"] = {"number", 1, 1}, ["1.4"] = {"number", 1, 1, "address mode"}, ["1.5"] = {"number", 1, 1},
  ["1.8"] = {"number", 1, 1}, ["1.9"] = {"number", 1, 1}, ["1.10"] = {"number", 1, 1},
  ["2.0"] = {"bytes", 6, 6}, ["2.1"] = {"number", 1, 1}, ["2.2"] = {"number", 1, 1}, ["2.3"] = {"number", 4, 4},
  ["2.4"] = {"text", 0, 32}, ["2.5"] = {"number", 4, 4}, ["2.6"] = {"text", 0, 32}, ["2.7"] = {"number", 4, 4},
  ["4.0"] = {"bytes", 64, 64}, ["4.1"] = {"bytes", 56, 56}, ["4.2"] = {"bytes", 88, 88},
  ["8.0"] = {"text", 0, 32}, ["8.1"] = {"number", 1, 1}, ["8.2"] = {"number", 1, 1}, ["8.3"] = {"number", 1, 1},
  ["8.4"] = {"number", 2, 2}, ["8.5"] = {"number", 2, 2}, ["8.6"] = {"number", 1, 1}, ["8.7"] = {"number", 1, 1},
  ["8.8"] = {"number", 2, 2}, ["8.9"] = {"bytes", 6, 6}, ["8.10"] = {"number", 4, 4}, ["8.11"] = {"number", 1, 1},
  ["8.12"] = {"number", 1, 1}, ["8.13"] = {"number", 1, 1}, ["8.14"] = {"number", 1, 1}, ["8.15"] = {"number", 1, 1},
  ["9.0"] = {"number", 1, 1}, ["9.1"] = {"number", 1, 1}, ["9.2"] = {"number", 1, 1}, ["9.3"] = {"secret", 52, 52},
  ["9.5"] = {"secret", 64, 64}, ["9.6"] = {"bytes", 4, 4},
  ["10.0"] = {"list", 228, 228}, ["10.1"] = {"number", 1, 1}, ["10.2"] = {"secret", 24, 24},
  ["10.3"] = {"secret", 24, 24},
  ["14.0"] = {"number", 1, 1}, ["14.1"] = {"bytes", 56, 56}, ["14.2"] = {"bytes", 14, 14},
  ["14.3"] = {"bytes", 64, 64}, ["14.4"] = {"number", 4, 4},

  ["15.0"] = {"number", 2, 2}, ["15.2"] = {"number", 1, 1}, ["15.3"] = {"number", 1, 1}, ["15.4"] = {"number", 1, 1},
  ["15.5"] = {"number", 1, 1}, ["15.6"] = {"number", 1, 1}, ["15.7"] = {"number", 1, 1}, ["15.8"] = {"number", 2, 2},
  ["15.9"] = {"number", 2, 2}, ["15.10"] = {"number", 2, 2}, ["15.11"] = {"bytes", 64, 64},
  ["15.13"] = {"number", 4, 4, "test counter 1"}, ["15.14"] = {"number", 4, 4, "test counter 2"},
  ["15.15"] = {"number", 4, 4, "test counter 3"},
  ["16.1"] = {"number", 4, 4, "sector"}, ["16.2"] = {"number", 2, 2, "number of sectors"},
  ["16.3"] = {"bytes", 1, 1400, "data"}, ["16.4"] = {"number", 4, 4, "last sector"},
  ["16.5"] = {"number", 4, 4, "bytes per sector"}, ["16.6"] = {"packets", 2, 6, "missing packets"},
}

local protocol = Proto("media_adapter", "Media Adapter Protocol")
local f = {
  magic = ProtoField.uint32("media_adapter.magic", "Magic", base.HEX),
  command = ProtoField.uint8("media_adapter.command", "Command", base.DEC, commands),
  format = ProtoField.uint8("media_adapter.format", "Format"),
  sender = ProtoField.uint8("media_adapter.sender", "Sender", base.DEC, {[DEVICE] = "device", [HOST] = "host"}),
  reserved = ProtoField.uint8("media_adapter.reserved", "Reserved"),
  sequence = ProtoField.uint16("media_adapter.sequence", "Sequence", base.DEC, nil, 0x3FFF),
  tag = ProtoField.uint16("media_adapter.tag", "Request tag", base.DEC, nil, 0xC000),
  length = ProtoField.uint16("media_adapter.length", "Length"),
  sourceMac = ProtoField.ether("media_adapter.source_mac", "Source MAC"),
  destinationMac = ProtoField.ether("media_adapter.destination_mac", "Destination MAC"),
  status = ProtoField.uint32("media_adapter.status", "Status", base.DEC, statuses),
  digest = ProtoField.bytes("media_adapter.digest", "Digest"),
  element = ProtoField.string("media_adapter.element", "Element"),
  size = ProtoField.uint16("media_adapter.element.size", "Size"),
  number = ProtoField.uint32("media_adapter.element.number", "Value"),
  text = ProtoField.string("media_adapter.element.text", "Value"),
  address = ProtoField.ipv4("media_adapter.element.address", "Value"),
  bytes = ProtoField.bytes("media_adapter.element.bytes", "Value"),
  secret = ProtoField.bytes("media_adapter.element.secret", "Value (enciphered)"),
  count = ProtoField.uint32("media_adapter.element.count", "Entries"),
  entry = ProtoField.bytes("media_adapter.element.entry", "Entry"),
  sector = ProtoField.uint32("media_adapter.sector", "Sector"),
  missing = ProtoField.uint16("media_adapter.missing", "Missing packet"),
  requestIn = ProtoField.framenum("media_adapter.request_in", "Request in", base.NONE, frametype.REQUEST),
  responseIn = ProtoField.framenum("media_adapter.response_in", "Answer in", base.NONE, frametype.RESPONSE),
  time = ProtoField.double("media_adapter.time", "Seconds since the request was first sent"),
  retransmission = ProtoField.bool("media_adapter.retransmission", "Sent again"),
  original = ProtoField.framenum("media_adapter.original", "First sent in", base.NONE, frametype.RETRANS_PREV),
  noResponse = ProtoField.bool("media_adapter.no_response", "No answer"),
  gap = ProtoField.uint16("media_adapter.gap", "Packets missing before this one"),
}
for _, field in pairs(f) do table.insert(protocol.fields, field) end
local e = {
  malformed = ProtoExpert.new("media_adapter.malformed", "Malformed", expert.group.MALFORMED, expert.severity.ERROR),
  size = ProtoExpert.new("media_adapter.bad_size", "Size that no such element has", expert.group.MALFORMED,
    expert.severity.WARN),
  status = ProtoExpert.new("media_adapter.failure", "Answer that is no success", expert.group.RESPONSE_CODE,
    expert.severity.NOTE),
  again = ProtoExpert.new("media_adapter.sent_again", "Sent again", expert.group.SEQUENCE, expert.severity.NOTE),
  noResponse = ProtoExpert.new("media_adapter.unanswered", "No answer", expert.group.SEQUENCE, expert.severity.WARN),
  missing = ProtoExpert.new("media_adapter.packets_missing", "Packets missing", expert.group.SEQUENCE,
    expert.severity.NOTE),
}
for _, expertInfo in pairs(e) do table.insert(protocol.experts, expertInfo) end

-- What the first pass over the capture finds, by frame number. Shown in later passes; a frame's answer comes after it.
local frames, requests, lastRequests, streams

function protocol.init()
  frames = {}        -- frame: what is known of it
  requests = {}      -- identity of a request: the frame in which it was sent last
  lastRequests = {}  -- host: the frame of its last request, whichever
  streams = {}       -- host and device: the stream between them
end

local function CommandName(code, isBroadcast)
  if code == 3 and isBroadcast then return "SetIPConfiguration" end
  return commands[code] or ("Command " .. code)
end

-- Host and device of a datagram, either way round.
local function Ends(pinfo, sender)
  local from, to = tostring(pinfo.src) .. ":" .. pinfo.src_port, tostring(pinfo.dst) .. ":" .. pinfo.dst_port
  if sender == DEVICE then return to, from end
  return from, to
end

-- A request, by what its answer repeats of it. A broadcast's answer comes from an address that the request does not
-- have: the device's MAC tells, and a Search has neither.
local function RequestKey(host, mac, command, sequence)
  if command == 1 then mac = "" end
  return table.concat({host, mac, command, sequence}, " ")
end

-- A host has one request open at a time: what it sends again is its last one. An equal one that comes later is another:
-- the counter comes round again, and each stream sets it to 0.
local function NoteRequest(frame, buffer, pinfo, host, command, sequence)
  frame.bytes, frame.first, frame.replies = buffer:bytes():tohex(), pinfo.abs_ts, {}
  local last = lastRequests[host]
  if last and frames[last].bytes == frame.bytes then
    frame.original = frames[last].original or last
    frame.first, frame.replies = frames[last].first, frames[last].replies
  end
  lastRequests[host] = pinfo.number
  requests[RequestKey(host, tostring(buffer(18, 6)), command, sequence)] = pinfo.number
end

local function NoteReply(frame, buffer, pinfo, host, command, sequence)
  local key = RequestKey(host, tostring(buffer(12, 6)), command - 1, sequence)
  local asked = requests[key] and frames[requests[key]]
  if not asked then return end
  frame.requestIn, frame.time = requests[key], pinfo.abs_ts - asked.first
  local bytes = buffer:bytes():tohex()
  frame.original = asked.replies[bytes]
  asked.replies[bytes] = asked.replies[bytes] or pinfo.number
  if command == 2 then return end  -- a Search has many answers, and is sent four times whatever they are
  asked.responseIn = asked.responseIn or pinfo.number
  if asked.original then frames[asked.original].responseIn = asked.responseIn end
end

local function NoteData(frame, pinfo, stream, number, status)
  if not stream then return end
  if number == 1 and not stream.seen[1] then
    frame.requestIn, frame.time = stream.request, pinfo.abs_ts - frames[stream.request].first
    frames[stream.request].responseIn = pinfo.number
  end
  if status ~= 0 then return end
  frame.original = stream.seen[number]
  stream.seen[number] = stream.seen[number] or pinfo.number
  if number > stream.highest then
    if number > stream.highest + 1 then frame.gap = number - stream.highest - 1 end
    stream.highest = number
  end
end

local function NoteAcknowledgement(frame, buffer, pinfo, stream)
  if not stream then return end
  local bytes = buffer:bytes():tohex()
  frame.original = stream.acknowledged[bytes]
  stream.acknowledged[bytes] = stream.acknowledged[bytes] or pinfo.number
end

local function Note(buffer, pinfo)
  local frame = {}
  frames[pinfo.number] = frame
  local sender, command, status = buffer(6, 1):uint(), buffer(4, 1):uint(), buffer(24, 4):le_uint()
  local sequence = buffer(8, 2):le_uint()
  local host, device = Ends(pinfo, sender)
  local ends = host .. " " .. device
  if command == ACKNOWLEDGEMENT then
    NoteAcknowledgement(frame, buffer, pinfo, streams[ends])
  elseif sender == HOST then
    NoteRequest(frame, buffer, pinfo, host, command, sequence)
    if command == START_TRANSFER and not frame.original then
      streams[ends] = {request = pinfo.number, seen = {}, acknowledged = {}, highest = 0}
    end
  elseif command == DATA then
    NoteData(frame, pinfo, streams[ends], sequence % 0x4000, status)
  elseif command ~= TEST_REPORT then
    NoteReply(frame, buffer, pinfo, host, command, sequence)
  end
end

local function ShowNotes(tree, pinfo, command, sender)
  local frame = frames[pinfo.number]
  if not frame then return end
  local isRequest = sender == HOST and command ~= ACKNOWLEDGEMENT and command ~= 1
  if frame.requestIn then
    tree:add(f.requestIn, frame.requestIn):set_generated()
    tree:add(f.time, tonumber(tostring(frame.time))):set_generated()
  end
  if frame.responseIn then tree:add(f.responseIn, frame.responseIn):set_generated() end
  if frame.original then
    local item = tree:add(f.retransmission, true):set_generated()
    item:add_proto_expert_info(e.again)
    tree:add(f.original, frame.original):set_generated()
    pinfo.cols.info:append(" [sent again]")
  end
  if frame.gap then
    tree:add(f.gap, frame.gap):set_generated():add_proto_expert_info(e.missing)
    pinfo.cols.info:append(" [" .. frame.gap .. " missing before it]")
  end
  if isRequest and pinfo.visited and not frame.responseIn then
    tree:add(f.noResponse, true):set_generated():add_proto_expert_info(e.noResponse)
    pinfo.cols.info:append(" [no answer]")
  end
end

local function Text(range)
  return (range:string():gsub("[%z\1-\31]", "."))
end

-- Each shows a value below `item` and returns it in a few words, if it has some.
local show = {}

function show.number(item, value, name)
  item:add_le(name == "sector" and f.sector or f.number, value)
  return tostring(value:le_uint())
end

function show.text(item, value)
  item:add(f.text, value, Text(value))
  return '"' .. Text(value) .. '"'
end

function show.address(item, value)
  item:add(f.address, value)
  return tostring(value:ipv4())
end

function show.bytes(item, value)
  item:add(f.bytes, value)
  return value:len() .. " bytes"
end

function show.secret(item, value)
  item:add(f.secret, value)
  return "enciphered"
end

function show.list(item, value)
  item:add_le(f.count, value(0, 4))
  local count = value(0, 4):le_uint()
  for at = 4, math.min(4 + 6 * count, value:len()) - 6, 6 do item:add(f.entry, value(at, 6)) end
  return count == 0xFFFFFFFF and "none" or (count .. " entries")
end

function show.packets(item, value)
  local numbers = {}
  for at = 0, value:len() - 2, 2 do
    item:add_le(f.missing, value(at, 2))
    table.insert(numbers, value(at, 2):le_uint())
  end
  item:add_proto_expert_info(e.missing)
  return table.concat(numbers, " ")
end

local function Label(element)
  local row = elements[element]
  return row and row[4] and (element .. " (" .. row[4] .. ")") or element
end

local function HasItsSize(row, size)
  if row[1] == "list" then return size >= 4 and size <= row[3] end  -- 228 from a device, no more than needed to one
  return size >= row[2] and size <= row[3]
end

local function ShowItems(buffer, tree, pinfo)
  local at = HEADER_SIZE
  while at < buffer:len() do
    local left = buffer:len() - at
    local size = left >= ITEM_HEADER_SIZE and buffer(at + 2, 2):le_uint() or 0
    if left < ITEM_HEADER_SIZE + size then
      tree:add_proto_expert_info(e.malformed, "An item that runs past the end")
      return
    end
    local element = buffer(at, 1):uint() .. "." .. buffer(at + 1, 1):uint()
    local row = elements[element] or {"bytes", 0, 0xFFFF}
    local item = tree:add(f.element, buffer(at, ITEM_HEADER_SIZE + size), element)
    item:set_text("Element " .. Label(element))
    item:add_le(f.size, buffer(at + 2, 2))
    if not HasItsSize(row, size) then
      item:add_proto_expert_info(e.size)
      row = {"bytes"}
    end
    if size == 0 then
      item:append_text(": empty")
    else
      local words = show[row[1]](item, buffer(at + ITEM_HEADER_SIZE, size), row[4])
      item:append_text(": " .. words)
      if row[4] then pinfo.cols.info:append(", " .. row[4] .. " " .. words) end
    end
    at = at + ITEM_HEADER_SIZE + size
  end
end

local function ShowAskedElements(buffer, tree)
  local at = HEADER_SIZE
  while at + 2 <= buffer:len() do
    local element = buffer(at, 1):uint() .. "." .. buffer(at + 1, 1):uint()
    tree:add(f.element, buffer(at, 2), element):set_text("Element " .. Label(element))
    at = at + 2
  end
end

local function ShowHeader(buffer, tree)
  tree:add_le(f.magic, buffer(0, 4))
  tree:add(f.command, buffer(4, 1))
  tree:add(f.format, buffer(5, 1))
  tree:add(f.sender, buffer(6, 1))
  tree:add(f.reserved, buffer(7, 1))
  tree:add_le(f.sequence, buffer(8, 2))
  tree:add_le(f.tag, buffer(8, 2))
  local length = tree:add_le(f.length, buffer(10, 2))
  if buffer(10, 2):le_uint() ~= buffer:len() then length:add_proto_expert_info(e.malformed, "Not the datagram's length") end
  tree:add(f.sourceMac, buffer(12, 6))
  tree:add(f.destinationMac, buffer(18, 6))
  local status = tree:add_le(f.status, buffer(24, 4))
  if buffer(24, 4):le_uint() ~= 0 and buffer(6, 1):uint() == DEVICE then status:add_proto_expert_info(e.status) end
  tree:add(f.digest, buffer(28, 16))
end

function protocol.dissector(buffer, pinfo, tree)
  if buffer:len() < HEADER_SIZE or buffer(0, 4):le_uint() ~= 0x78563412 then return 0 end
  local command, sender, status = buffer(4, 1):uint(), buffer(6, 1):uint(), buffer(24, 4):le_uint()
  local isBroadcast = tostring(pinfo.dst) == "255.255.255.255"
  local name = CommandName(command, isBroadcast)
  pinfo.cols.protocol = "MediaAdapter"
  pinfo.cols.info = name .. " #" .. buffer(8, 2):le_uint() % 0x4000
  if status ~= 0 then pinfo.cols.info:append(": " .. (statuses[status] or ("status " .. status))) end

  if not pinfo.visited then Note(buffer, pinfo) end
  local subtree = tree:add(protocol, buffer(), "Media Adapter Protocol, " .. name)
  ShowHeader(buffer, subtree)
  if command == GET_CONFIGURATION and sender == HOST then
    ShowAskedElements(buffer, subtree)
  else
    ShowItems(buffer, subtree, pinfo)
  end
  ShowNotes(subtree, pinfo, command, sender)
  return buffer:len()
end

DissectorTable.get("udp.port"):add(PORT, protocol)

#include "simulator/datagrams.h"

#include <algorithm>

#include "protocol/little_endian.h"
#include "protocol/wire.h"

namespace media_adapter::simulator {
namespace {

platform::MacAddress MacAt(std::span<const uint8_t> datagram, size_t offset) {
  platform::MacAddress mac;
  std::copy_n(datagram.begin() + static_cast<std::ptrdiff_t>(offset), mac.size(), mac.begin());
  return mac;
}

const char* FaultOfHeader(std::span<const uint8_t> datagram) {
  if (datagram.size() < wire::kHeaderSize) return "shorter than a header";
  if (ReadU32(datagram, wire::kMagicOffset) != wire::kMagic) return "wrong magic";
  if (datagram[wire::kFormatOffset] != wire::kFormatByte) return "wrong format byte";
  if (datagram[wire::kSenderOffset] != wire::kHostSender) return "not from a host";
  if (ReadU16(datagram, wire::kLengthOffset) != datagram.size()) return "length field is not its length";
  return nullptr;
}

}  // namespace

std::optional<Request> ParseRequest(std::span<const uint8_t> datagram, const platform::Endpoint& sender,
                                    const char*& reason) {
  reason = FaultOfHeader(datagram);
  if (reason != nullptr) return std::nullopt;
  return Request{.command = datagram[wire::kCommandOffset],
                 .sequence = ReadU16(datagram, wire::kSequenceOffset),
                 .status = ReadU32(datagram, wire::kStatusOffset),
                 .sourceMac = MacAt(datagram, wire::kSourceMacOffset),
                 .destinationMac = MacAt(datagram, wire::kDestinationMacOffset),
                 .digest = datagram.subspan(wire::kDigestOffset, wire::kDigestSize),
                 .body = datagram.subspan(wire::kHeaderSize),
                 .datagram = datagram,
                 .sender = sender};
}

bool ItemReader::Next(Item& item) {
  if (rest_.size() < wire::kItemHeaderSize) return false;
  const size_t size = ReadU16(rest_, 2);
  if (rest_.size() - wire::kItemHeaderSize < size) return false;
  item = {rest_[0], rest_[1], rest_.subspan(wire::kItemHeaderSize, size)};
  rest_ = rest_.subspan(wire::kItemHeaderSize + size);
  return true;
}

Datagram BeginDatagram(uint8_t command, uint16_t sequence, const platform::MacAddress& device,
                       const platform::MacAddress& host, size_t bodySize) {
  Datagram datagram;
  datagram.reserve(wire::kHeaderSize + bodySize);
  datagram.resize(wire::kHeaderSize);
  WriteU32(datagram, wire::kMagicOffset, wire::kMagic);
  datagram[wire::kCommandOffset] = command;
  datagram[wire::kFormatOffset] = wire::kFormatByte;
  datagram[wire::kSenderOffset] = wire::kDeviceSender;
  WriteU16(datagram, wire::kSequenceOffset, sequence);
  std::ranges::copy(device, datagram.begin() + wire::kSourceMacOffset);
  std::ranges::copy(host, datagram.begin() + wire::kDestinationMacOffset);
  return datagram;
}

std::span<uint8_t> AppendItem(Datagram& datagram, uint8_t elementClass, uint8_t index, size_t size) {
  const size_t at = datagram.size();
  datagram.resize(at + wire::kItemHeaderSize + size);
  datagram[at] = elementClass;
  datagram[at + 1] = index;
  WriteU16(datagram, at + 2, static_cast<uint16_t>(size));
  return std::span(datagram).subspan(at + wire::kItemHeaderSize);
}

void AppendNumber(Datagram& datagram, uint8_t elementClass, uint8_t index, uint32_t value) {
  WriteU32(AppendItem(datagram, elementClass, index, sizeof value), 0, value);
}

void FinishDatagram(Datagram& datagram, DeviceStatus status) {
  if (status != DeviceStatus::Success) datagram.resize(wire::kHeaderSize);
  WriteU32(datagram, wire::kStatusOffset, static_cast<uint32_t>(status));
  WriteU16(datagram, wire::kLengthOffset, static_cast<uint16_t>(datagram.size()));
}

}  // namespace media_adapter::simulator

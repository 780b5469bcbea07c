#include "simulator/device_model.h"

#include <algorithm>
#include <array>

#include "protocol/little_endian.h"
#include "protocol/md5.h"
#include "protocol/wire.h"

namespace media_adapter::simulator {
namespace {

using enum DeviceStatus;
using wire::Command;

constexpr platform::MacAddress kEveryDevice = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
constexpr uint16_t kFirstPacketNumber = 1;
constexpr uint32_t kMaxSectorsPerRequest = 2;

// The items of a SetTest, each exactly once: index (its place in the table) to size; 0 is no item.
constexpr std::array<uint16_t, 12> kTestItemSizes = {2, 0, 1, 1, 1, 1, 1, 1, 2, 2, 2, 64};

// The items of a file-access request.
struct AccessItems {
  std::optional<uint32_t> sector;
  std::optional<uint16_t> count;
  std::optional<std::span<const uint8_t>> data;
};

DeviceStatus ReadAccessItems(std::span<const uint8_t> body, AccessItems& items) {
  Item item;
  ItemReader reader(body);
  while (reader.Next(item)) {
    if (item.elementClass != wire::kFileAccessClass) return InvalidElement;
    if (item.index == wire::kSectorIndex) {
      if (item.value.size() != 4) return InvalidSize;
      items.sector = ReadU32(item.value, 0);
    } else if (item.index == wire::kSectorCountIndex) {
      if (item.value.size() != 2) return InvalidSize;
      items.count = ReadU16(item.value, 0);
    } else if (item.index == wire::kDataIndex) {
      items.data = item.value;
    } else {
      return InvalidElement;
    }
  }
  return reader.IsAtEnd() ? Success : ProtocolError;
}

DeviceStatus CheckSectors(const AccessItems& items, uint32_t sectorCount) {
  if (!items.sector || !items.count) return ProtocolError;
  if (*items.count == 0 || *items.count > kMaxSectorsPerRequest) return ProtocolError;
  return uint64_t{*items.sector} + *items.count <= sectorCount ? Success : ProtocolError;
}

}  // namespace

struct DeviceModel::Call {
  const Request& request;
  Datagram& reply;
  std::vector<Outgoing>& out;  // the stream's packets
  Time now;
};

struct DeviceModel::CommandRow {
  enum class Reply : uint8_t { Always, OnFailure, Never };

  DeviceStatus (DeviceModel::*handler)(Call&);
  uint16_t replyBody;  // bytes to make room for
  Command command;
  Reply reply;
  bool isAuthenticated;
  bool isFileAccess;
  bool needsConnection;
};

const DeviceModel::CommandRow* DeviceModel::FindCommand(uint8_t command) {
  using enum CommandRow::Reply;
  using D = DeviceModel;
  constexpr bool kDigest = true, kAccess = true, kConnected = true, kNo = false;
  // A file-access request may find the device busy (kAccess) and, most of them, not connected (kConnected).
  static constexpr CommandRow kRows[] = {
      {&D::Search, 160, Command::Search, Always, kNo, kNo, kNo},
      {&D::ChangeConfiguration, 0, Command::SetConfiguration, Always, kDigest, kNo, kNo},
      {&D::ReadConfiguration, 512, Command::GetConfiguration, Always, kDigest, kNo, kNo},
      {&D::StartTest, 0, Command::SetTest, Always, kDigest, kNo, kNo},
      {&D::Connect, 16, Command::RFAConnect, Always, kDigest, kAccess, kNo},
      {&D::Disconnect, 0, Command::RFADisconnect, Always, kDigest, kAccess, kNo},
      {&D::ReadSectors, 1028, Command::RFAReadData, Always, kDigest, kAccess, kConnected},
      {&D::WriteSectors, 0, Command::RFAWriteData, Always, kDigest, kAccess, kConnected},
      {&D::StartTransfer, 0, Command::RFAStartTransfer, OnFailure, kDigest, kAccess, kConnected},
      {&D::TakeAcknowledgement, 0, Command::TransferAcknowledgement, Never, kDigest, kNo, kNo},
  };
  const auto row =
      std::ranges::find(kRows, command, [](const CommandRow& r) { return static_cast<uint8_t>(r.command); });
  return row == std::end(kRows) ? nullptr : row;
}

DeviceModel::DeviceModel(DeviceIdentity identity, std::unique_ptr<Storage> storage, Behaviour behaviour)
    : identity_(std::move(identity)),
      storage_(std::move(storage)),
      behaviour_(behaviour),
      settings_(identity_.name, identity_.address) {
  settings_.SetGaps(behaviour_.unknownElements, behaviour_.untoldElements);
}

std::vector<Outgoing> DeviceModel::OnDatagram(std::span<const uint8_t> datagram, const platform::Endpoint& sender,
                                              Time now) {
  std::vector<Outgoing> out;
  if (behaviour_.writesBeforeDeath && writeCount_ >= *behaviour_.writesBeforeDeath) {
    dropReason_ = "the device is dead";
    return out;
  }
  const auto request = ParseRequest(datagram, sender, dropReason_);
  if (!request) return out;
  const CommandRow* row = FindCommand(request->command);
  if (row == nullptr) {
    dropReason_ = "no command of a host";
    return out;
  }
  const bool isForAll = row->command == Command::Search && request->destinationMac == kEveryDevice;
  if (!isForAll && request->destinationMac != identity_.mac) {
    dropReason_ = "for another device";
    return out;
  }
  Datagram reply;
  Call call{*request, reply, out, now};
  Answer(*row, call);
  return out;
}

void DeviceModel::Answer(const CommandRow& row, Call& call) {
  const Request& request = call.request;
  // A transfer is answered by its first packet, and so is one that is refused.
  const uint16_t sequence = row.command == Command::RFAStartTransfer ? kFirstPacketNumber : request.sequence;
  if (row.reply == CommandRow::Reply::Always) {
    call.reply = BeginDatagram(static_cast<uint8_t>(request.command + 1), sequence, identity_.mac, request.sourceMac,
                               row.replyBody);
  }
  DeviceStatus status = CheckAccess(row, request);
  if (status == Success) status = (this->*row.handler)(call);

  if (row.reply == CommandRow::Reply::Never) {
    if (status == InvalidPassword) dropReason_ = "wrong password";
    return;
  }
  if (row.reply == CommandRow::Reply::OnFailure) {
    if (status == Success) return;
    call.reply =
        BeginDatagram(static_cast<uint8_t>(request.command + 1), sequence, identity_.mac, request.sourceMac, 0);
  }
  FinishDatagram(call.reply, status);
  call.out.push_back({request.sender, std::move(call.reply)});
}

DeviceStatus DeviceModel::CheckAccess(const CommandRow& row, const Request& request) {
  if (!row.isAuthenticated) return Success;
  if (!HasRightDigest(request)) return InvalidPassword;
  if (row.command == Command::TransferAcknowledgement) return Success;
  EndStreamByCommand(request);
  if (row.isFileAccess && behaviour_.busyReplies != 0) {
    --behaviour_.busyReplies;
    return Busy;
  }
  return row.needsConnection && !isConnected_ ? NotConnected : Success;
}

bool DeviceModel::HasRightDigest(const Request& request) const {
  std::array<uint8_t, wire::kMaxPasswordLength + 2> input{};
  const size_t length = std::min(identity_.password.size(), wire::kMaxPasswordLength);
  std::copy_n(identity_.password.begin(), length, input.begin());
  WriteU16(input, length, request.sequence & wire::kSequenceMask);
  return std::ranges::equal(Md5(std::span(input).first(length + 2)), request.digest);
}

// A host that sends another command has left its transfer. A late duplicate of the command before the transfer says
// nothing of the kind.
void DeviceModel::EndStreamByCommand(const Request& request) {
  if (request.command == static_cast<uint8_t>(Command::RFAStartTransfer)) return;
  const bool isRepeated = std::ranges::equal(request.datagram, lastRequest_);
  if (stream_ && stream_->Origin().receiver == request.sender && !isRepeated) stream_.reset();
  if (!isRepeated) lastRequest_.assign(request.datagram.begin(), request.datagram.end());
}

DeviceStatus DeviceModel::Search(Call& call) {
  settings_.AppendSearchElements(call.reply);
  return Success;
}

DeviceStatus DeviceModel::ChangeConfiguration(Call& call) {
  const DeviceStatus status = settings_.Apply(call.request.body, identity_.password);
  if (status == Success) identity_.address = settings_.Address();
  return status;
}

DeviceStatus DeviceModel::ReadConfiguration(Call& call) {
  return settings_.AppendElements(call.request.body, call.reply);
}

DeviceStatus DeviceModel::StartTest(Call& call) {
  std::array<bool, kTestItemSizes.size()> seen{};
  Item item;
  ItemReader reader(call.request.body);
  while (reader.Next(item)) {
    if (item.elementClass != wire::kTestClass || item.index >= seen.size()) return InvalidElement;
    if (kTestItemSizes[item.index] == 0) return InvalidElement;
    if (item.value.size() != kTestItemSizes[item.index]) return InvalidSize;
    if (std::exchange(seen[item.index], true)) return ProtocolError;
  }
  for (size_t i = 0; i < seen.size(); ++i) {
    if (!reader.IsAtEnd() || seen[i] != (kTestItemSizes[i] != 0)) return ProtocolError;
  }
  reports_.Start(call.request.sender, call.request.sourceMac, call.now);
  return Success;
}

DeviceStatus DeviceModel::Connect(Call& call) {
  if (storage_->SectorCount() == 0) return StorageFailed;
  isConnected_ = true;
  AppendNumber(call.reply, wire::kFileAccessClass, wire::kLastSectorIndex, storage_->SectorCount() - 1);
  AppendNumber(call.reply, wire::kFileAccessClass, wire::kSectorSizeIndex, behaviour_.reportedSectorSize);
  return Success;
}

DeviceStatus DeviceModel::Disconnect(Call&) {
  isConnected_ = false;
  return Success;
}

DeviceStatus DeviceModel::ReadSectors(Call& call) {
  AccessItems items;
  if (const auto status = ReadAccessItems(call.request.body, items); status != Success) return status;
  if (const auto status = CheckSectors(items, storage_->SectorCount()); status != Success) return status;
  if (items.data) return ProtocolError;
  const size_t size = size_t{*items.count} * kSectorSize;
  const auto room = AppendItem(call.reply, wire::kFileAccessClass, wire::kDataIndex, size);
  return storage_->Read(*items.sector, room) ? Success : StorageFailed;
}

DeviceStatus DeviceModel::WriteSectors(Call& call) {
  AccessItems items;
  if (const auto status = ReadAccessItems(call.request.body, items); status != Success) return status;
  if (const auto status = CheckSectors(items, storage_->SectorCount()); status != Success) return status;
  if (!items.data) return ProtocolError;
  if (items.data->size() != size_t{*items.count} * kSectorSize) return InvalidSize;
  if (behaviour_.writesBeforeRefusal == writeCount_ && behaviour_.refusals != 0) {
    --behaviour_.refusals;
    return ProtocolError;
  }
  if (!storage_->Write(*items.sector, *items.data)) return StorageFailed;
  ++writeCount_;
  writeLog_.push_back({*items.sector, *items.count});
  return Success;
}

DeviceStatus DeviceModel::StartTransfer(Call& call) {
  AccessItems items;
  if (const auto status = ReadAccessItems(call.request.body, items); status != Success) return status;
  if (!items.sector || items.count || items.data || *items.sector >= storage_->SectorCount()) return ProtocolError;
  const StreamOrigin origin{call.request.sender, call.request.sequence, *items.sector};
  if (!stream_ || stream_->Origin() != origin) {
    stream_.emplace(*storage_, origin, identity_.mac, call.request.sourceMac,
                    StreamLimits{behaviour_.repeatInterval, behaviour_.repeatLimit});
  }
  stream_->Start(call.now, call.out);
  return Success;
}

DeviceStatus DeviceModel::TakeAcknowledgement(Call& call) {
  const Request& request = call.request;
  const uint16_t number = request.sequence & wire::kSequenceMask;
  if (!stream_ || stream_->Origin().receiver != request.sender) {
    dropReason_ = "no transfer to this host";
    return Success;
  }
  Item item;
  ItemReader reader(request.body);
  if (request.body.empty()) {
    stream_->Acknowledge(number, call.now, call.out);
  } else if (reader.Next(item) && reader.IsAtEnd() && item.elementClass == wire::kFileAccessClass &&
             item.index == wire::kMissingPacketsIndex && item.value.size() % 2 == 0 &&
             item.value.size() <= 2 * wire::kPacketsPerBlock) {
    stream_->Resend(number, item.value, call.now, call.out);
  } else {
    dropReason_ = "malformed list of missing packets";
  }
  if (stream_->IsOver()) stream_.reset();
  return Success;
}

std::vector<Outgoing> DeviceModel::OnTime(Time now) {
  std::vector<Outgoing> out;
  if (stream_) stream_->OnTime(now, out);
  if (stream_ && stream_->IsOver()) stream_.reset();
  reports_.OnTime(now, identity_.mac, out);
  return out;
}

std::optional<Time> DeviceModel::NextTime() const {
  const auto report = reports_.NextTime();
  if (!stream_) return report;
  return report ? std::min(*report, stream_->NextTime()) : stream_->NextTime();
}

void DeviceModel::Restart() {
  stream_.reset();
  isConnected_ = false;
}

}  // namespace media_adapter::simulator

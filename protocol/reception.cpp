#include "protocol/reception.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>

#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "protocol/exchange.h"
#include "protocol/little_endian.h"
#include "protocol/packet.h"
#include "protocol/parse_elements.h"
#include "protocol/protocol_state.h"
#include "protocol/wire.h"

namespace media_adapter {
namespace {

using Bytes = std::span<const uint8_t>;
using wire::Command;

// A test report carries one counter, or two.
constexpr std::array<size_t, 2> kTestReportSizes = {52, 60};
constexpr uint16_t kFirstPacketNumber = 1;

// What an operation accepts as its reply. The row's place is the operation's number.
struct ReplyRule {
  uint8_t command{};
  bool retriesWhenBusy = false;          // statuses 5, 6 and 49 are ignored, so that the request is sent again
  std::optional<BodyMode> body = {};     // how the body of a reply with status 0 is read
  std::optional<size_t> exactSize = {};  // of the datagram
};

constexpr std::array<ReplyRule, 12> kReplies = {{
    {},  // None: nothing is awaited
    {2, false, BodyMode::SearchReply},
    {6, false, BodyMode::GetConfigurationReply},
    {4},
    {4},
    {8, false, {}, wire::kHeaderSize},
    {33, true, BodyMode::RFAConnectReply},
    {35, true},
    {37, true, BodyMode::RFAReadDataReply},
    {39, true},
    {41, true, BodyMode::TransferData},
    {41, false, BodyMode::TransferData},
}};

struct Reply {
  Bytes datagram;
  platform::Endpoint sender;

  uint8_t CommandCode() const { return datagram[wire::kCommandOffset]; }
  bool Is(Command command) const { return CommandCode() == static_cast<uint8_t>(command); }
  uint16_t Sequence() const { return ReadU16(datagram, wire::kSequenceOffset); }
  StatusCode Status() const { return ReadU32(datagram, wire::kStatusOffset); }
  Bytes SourceMac() const { return datagram.subspan(wire::kSourceMacOffset, sizeof(platform::MacAddress)); }
  Bytes Body() const { return datagram.subspan(wire::kHeaderSize); }
  bool HasTestReportSize() const {
    return std::ranges::find(kTestReportSizes, datagram.size()) != kTestReportSizes.end();
  }
};

// The sender, the header and the sequence are those that the outstanding request, or a test report, may have.
bool IsExpected(const Reply& reply) {
  const Operation pending = protocolState.pendingOperation;
  if (reply.sender.port != wire::kDevicePort) return false;
  if (pending != Operation::Search && reply.sender.address != protocolState.deviceAddress) return false;
  if (ReadU32(reply.datagram, wire::kMagicOffset) != wire::kMagic) return false;
  if (reply.datagram[wire::kFormatOffset] != wire::kFormatByte) return false;
  if (reply.datagram[wire::kSenderOffset] != wire::kDeviceSender) return false;
  const bool numberedByDevice = reply.Is(Command::TestReport) || reply.Is(Command::TransferData);
  if (!numberedByDevice && reply.Sequence() != BuiltSequence()) return false;
  if (ReadU16(reply.datagram, wire::kLengthOffset) != reply.datagram.size()) return false;
  return pending == Operation::Search || std::ranges::equal(reply.SourceMac(), protocolState.targetMac);
}

[[gnu::cold]] void AddDevice(const Reply& reply) {
  if (reply.Status() != MEDIA_ADAPTER_OK || deviceTable.count >= deviceTable.entries.size()) return;
  const auto found = std::span(deviceTable.entries).first(deviceTable.count);
  const auto isKnown = [&](const DeviceEntry& entry) {
    return std::ranges::equal(entry.macAddress, reply.SourceMac());
  };
  if (std::ranges::any_of(found, isKnown)) return;
  if (!ParseElements(reply.Body(), BodyMode::SearchReply)) return;
  std::ranges::copy(reply.SourceMac(), deviceTable.entries[deviceTable.count].macAddress);
  ++deviceTable.count;
}

bool MeansTryAgain(StatusCode status) {
  return status == MEDIA_ADAPTER_BUSY || status == MEDIA_ADAPTER_NOT_READY ||
         status == MEDIA_ADAPTER_STORAGE_NOT_ACCESSIBLE;
}

// The reply fits its operation's rule. Its body is stored then.
bool IsAcceptable(const Reply& reply, const ReplyRule& rule) {
  if (reply.CommandCode() != rule.command) return false;
  if (rule.exactSize && reply.datagram.size() != *rule.exactSize) return false;
  const bool startsTransfer = protocolState.pendingOperation == Operation::RFAStartTransfer;
  if (startsTransfer && reply.Sequence() != kFirstPacketNumber) return false;
  if (rule.retriesWhenBusy && MeansTryAgain(reply.Status())) return false;
  return reply.Status() != MEDIA_ADAPTER_OK || !rule.body || ParseElements(reply.Body(), *rule.body);
}

void Accept(const Reply& reply) {
  ProtocolState& state = protocolState;
  const bool succeeded = reply.Status() == MEDIA_ADAPTER_OK;
  state.replyStatus = reply.Status();
  state.operationDone = true;
  if (reply.Is(Command::TransferData) && succeeded) {
    transferBuffer.lastPacketNumber = reply.Sequence() & wire::kSequenceMask;
  }
  if (state.pendingOperation == Operation::Transfer) return;  // goes on until the file read ends it

  KillTimer(state.pendingOperation);
  state.replyReceived = true;
  const bool isStream = state.pendingOperation == Operation::RFAStartTransfer && succeeded;
  state.pendingOperation = isStream ? Operation::Transfer : Operation::None;
}

[[gnu::cold]] void TakeTestReport(const Reply& reply) {
  const bool isUsable = reply.HasTestReportSize() && reply.Status() == MEDIA_ADAPTER_OK;
  if (isUsable) ParseElements(reply.Body(), BodyMode::TestReport);
}

void Handle(const Reply& reply) {
  if (!IsExpected(reply)) return;
  if (reply.Is(Command::TestReport)) return TakeTestReport(reply);
  if (protocolState.pendingOperation == Operation::None) return;
  const ReplyRule& rule = kReplies[static_cast<size_t>(protocolState.pendingOperation)];
  if (protocolState.pendingOperation == Operation::Search) {
    if (reply.CommandCode() == rule.command) AddDevice(reply);
  } else if (IsAcceptable(reply, rule)) {
    Accept(reply);
  }
}

}  // namespace

[[gnu::hot]] void OnReceive(platform::DatagramSocket::Patience patience) {
  static std::array<uint8_t, wire::kMaxDatagramSize> buffer;
  Reply reply;
  const int size = WorkerChannel().deviceSocket.ReceiveFrom(buffer, reply.sender, patience);
  if (size < static_cast<int>(wire::kHeaderSize)) return;
  reply.datagram = std::span(buffer).first(static_cast<size_t>(size));
  Handle(reply);
}

}  // namespace media_adapter

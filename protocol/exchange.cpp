#include "protocol/exchange.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

#include "platform/clock.h"
#include "platform/notices.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "protocol/packet.h"
#include "protocol/reception.h"

namespace media_adapter {
namespace {

using std::chrono::milliseconds;

constexpr uint8_t kMaxRetries = 3;

// How a request is sent and sent again. The row's place is the operation's number and the timer's id.
struct ExchangeRule {
  char label[20];  // in the row: a pointer would lie elsewhere, in memory that the loader writes
  wire::Command command;
  std::array<milliseconds, kMaxRetries + 1> intervals;  // after the first sending, then after each retransmission
  bool isBroadcast = false;
};

consteval milliseconds operator""_ms(unsigned long long value) { return milliseconds(value); }

constexpr std::array<ExchangeRule, 12> kRules = {{
    {},  // None: never sent
    {"Search", wire::Command::Search, {1500_ms, 1500_ms, 1500_ms, 1500_ms}, true},
    {"GetConfiguration", wire::Command::GetConfiguration, {1500_ms, 1500_ms, 1500_ms, 1500_ms}},
    {"SetIPConfiguration", wire::Command::SetConfiguration, {1500_ms, 1500_ms, 1500_ms, 1500_ms}, true},
    {"SetConfiguration", wire::Command::SetConfiguration, {1500_ms, 1500_ms, 1500_ms, 1500_ms}},
    {"SetTest", wire::Command::SetTest, {1500_ms, 1500_ms, 1500_ms, 1500_ms}},
    {"RFAConnect", wire::Command::RFAConnect, {3000_ms, 3000_ms, 4500_ms, 9000_ms}},
    {"RFADisconnect", wire::Command::RFADisconnect, {1500_ms, 1500_ms, 1500_ms, 3000_ms}},
    {"RFAReadData", wire::Command::RFAReadData, {2000_ms, 2000_ms, 3000_ms, 6000_ms}},
    {"RFAWriteData", wire::Command::RFAWriteData, {2000_ms, 2000_ms, 3000_ms, 6000_ms}},
    {"RFAStartTransfer", wire::Command::RFAStartTransfer, {2000_ms, 2000_ms, 3000_ms, 6000_ms}},
    {"Transfer", wire::Command::TransferAcknowledgement, {3000_ms, 3000_ms, 4500_ms, 9000_ms}},
}};

const ExchangeRule& RuleOf(Operation operation) { return kRules[static_cast<size_t>(operation)]; }

std::chrono::nanoseconds ArmTimer(Operation operation, milliseconds interval) {
  return WorkerChannel().queue.ArmTimer(static_cast<uint32_t>(operation), interval);
}

[[gnu::hot]] void Send(const char* label, const platform::Ipv4Address& address) {
  const auto request = BuiltRequest();
  const int sent = WorkerChannel().deviceSocket.SendTo(request, {address, wire::kDevicePort});
  if (sent == static_cast<int>(request.size())) return;
  std::array<char, 64> line{};
  std::snprintf(line.data(), line.size(), "TraceSendTo(%s) nLength", label);
  platform::TraceLine(line.data());
}

void SendBy(const ExchangeRule& rule, const char* label) {
  if (rule.isBroadcast) {
    SendToAll(label);
  } else {
    SendToDevice(label);
  }
}

// Arms the operation's timer and waits for its end: looks for the datagram where that promises more than sleeping does,
// naps, which costs a quick device's exchange least, and sleeps.
[[gnu::hot]] void Await(Operation operation) {
  ProtocolState& state = protocolState;
  const auto& queue = WorkerChannel().queue;
  const auto start = ArmTimer(operation, RuleOf(operation).intervals[0]);
  const auto way = state.eagerWait.Next();
  if (way == EagerWait::Way::Look) {
    const auto end = start + EagerWait::kLongest;
    while (!state.operationDone && !queue.IsQuitting() && platform::MonotonicNow() < end) OnReceive();
  }
  const bool hasCome = state.operationDone;
  if (!hasCome && !queue.IsQuitting()) OnReceive(platform::DatagramSocket::Patience::Nap);
  while (!state.operationDone) PumpOneMessage();
  if (way != EagerWait::Way::Sleep) state.eagerWait.Learn(way, hasCome, platform::MonotonicNow() - start);
  KillTimer(operation);  // a packet of a stream leaves it armed, and the end of the library
}

// Sends what was built for `operation` and pumps until it has ended.
void Exchange(Operation operation) {
  const ExchangeRule& rule = RuleOf(operation);
  SendBy(rule, rule.label);
  Await(operation);
}

void AddressDevice(const DeviceEntry& entry) {
  std::ranges::copy(entry.ipAddress, protocolState.deviceAddress.begin());
  std::ranges::copy(entry.macAddress, protocolState.targetMac.begin());
}

void OnTimer(Operation operation) {
  ProtocolState& state = protocolState;
  const ExchangeRule& rule = RuleOf(operation);
  if (state.retryCount >= kMaxRetries) {
    state.operationDone = true;
    if (operation == Operation::Transfer) {
      state.transferTimedOut = true;  // the file read closes the transfer itself
    } else {
      state.pendingOperation = Operation::None;
    }
    return;
  }
  ++state.retryCount;
  SendBy(rule, "OnTimer");
  ArmTimer(operation, rule.intervals[state.retryCount]);
}

}  // namespace

[[gnu::hot]] StatusCode RunRequest(Operation operation, size_t bodySize, const SessionValues& session) {
  ProtocolState& state = protocolState;
  state.pendingOperation = operation;
  state.retryCount = 0;
  state.replyReceived = false;
  state.replyStatus = 0;
  state.operationDone = false;
  AddressDevice(deviceTable.entries.at(session.device));
  BuildHeader(RuleOf(operation).command, bodySize, state.targetMac, session.requestTag, session.password);
  Exchange(operation);
  return state.replyReceived ? state.replyStatus : StatusCode{MEDIA_ADAPTER_NO_RESPONSE};
}

void RunSearch() {
  ProtocolState& state = protocolState;
  state.pendingOperation = Operation::Search;
  state.retryCount = 0;
  state.operationDone = false;
  deviceTable.count = 0;
  BuildHeader(wire::Command::Search, 0, {}, 0, {});
  Exchange(Operation::Search);
}

void WaitForPacket() {
  ProtocolState& state = protocolState;
  state.operationDone = false;
  if (!WorkerChannel().queue.IsQuitting()) OnReceive();  // most packets are there already
  if (!state.operationDone) Await(Operation::Transfer);
}

[[gnu::hot]] void SendToDevice(const char* label) { Send(label, protocolState.deviceAddress); }

void SendToAll(const char* label) { Send(label, platform::kBroadcastAddress); }

void HandleMessage(const platform::Message& message) {
  if (message.kind == platform::Message::Kind::Timer) {
    OnTimer(static_cast<Operation>(message.timerId));
  } else {
    OnReceive();
  }
}

[[gnu::hot]] void KillTimer(Operation operation) { WorkerChannel().queue.KillTimer(static_cast<uint32_t>(operation)); }

void PumpOneMessage() {
  using platform::MessageQueue;
  platform::Message message;
  if (WorkerChannel().queue.Take(message, MessageQueue::Accept::NoRequests) != MessageQueue::Taken::Message) {
    protocolState.transferTimedOut = true;
    protocolState.operationDone = true;
  } else {
    HandleMessage(message);
  }
}

}  // namespace media_adapter

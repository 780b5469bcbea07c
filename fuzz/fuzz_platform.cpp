#include "fuzz/fuzz_platform.h"

#include <algorithm>
#include <utility>

#include "api/request_gate.h"
#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "platform/adapters.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/notices.h"
#include "platform/thread.h"
#include "platform/waiter.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"
#include "worker/handlers.h"

namespace media_adapter::fuzz {

Network network;

void StartWithOneDevice() {
  network = {};
  ResetResultBlocks();
  ResetPackets({});
  ResetProtocol();
  ResetVolume();
  OpenChannel();
  WorkerChannel().queue.Watch(&WorkerChannel().deviceSocket);
  DeviceEntry& entry = deviceTable.entries[0];
  std::ranges::copy(kDevice.address, entry.ipAddress);
  std::ranges::copy(kDeviceMac, entry.macAddress);
  deviceTable.count = 1;
  searchResult.deviceCount = 1;
}

void Stop() {
  FreeSectorBuffers();
  CloseChannel();
}

void Run(RequestRecord record) { HandleRequest(record); }

uint8_t Input::Byte() {
  if (bytes_.empty()) return 0;
  const uint8_t byte = bytes_.front();
  bytes_ = bytes_.subspan(1);
  return byte;
}

std::vector<uint8_t> Input::Bytes(size_t count) {
  const auto taken = bytes_.first(std::min(count, bytes_.size()));
  bytes_ = bytes_.subspan(taken.size());
  return {taken.begin(), taken.end()};
}

}  // namespace media_adapter::fuzz

namespace media_adapter::platform {

using fuzz::network;

std::chrono::nanoseconds MonotonicNow() { return network.now; }
LocalTime CurrentLocalTime() { return {}; }
void Sleep(std::chrono::milliseconds duration) { network.now += duration; }
MacAddress FirstAdapterAddress() { return {}; }
void ShowError(const char*) {}
void TraceLine(const char*) {}
uint32_t LastSystemError() { return 0; }

struct Event::Impl {};
Event::Event() = default;
Event::~Event() = default;
void Event::Set() {}
bool Event::Wait(std::chrono::milliseconds) { return false; }

struct Thread::Impl {};
Thread::Thread() = default;
Thread::~Thread() = default;
bool Thread::Start(void (*)()) { return false; }
bool Thread::Wait(std::chrono::milliseconds) { return true; }
bool Thread::StopByForce() { return true; }

struct Waiter::Impl {};
Waiter::Waiter() = default;
Waiter::~Waiter() = default;
void Waiter::Wake() {}
void Waiter::Watch(const DatagramSocket*) {}
Waiter::Outcome Waiter::Wait(std::optional<std::chrono::nanoseconds> deadline) {
  if (!network.incoming.empty()) return Outcome::Readable;
  if (!deadline) return Outcome::Failed;
  if (network.onTime) network.onTime(network.now);
  if (!network.incoming.empty()) return Outcome::Readable;
  network.now = std::max(network.now, *deadline);
  return Outcome::TimedOut;
}

bool DatagramSocket::Open(const char*) { return true; }
bool DatagramSocket::EnableBroadcast() { return true; }
void DatagramSocket::Close() {}
std::optional<Ipv4Address> DatagramSocket::LocalAddress() const { return std::nullopt; }

int DatagramSocket::SendTo(std::span<const uint8_t> datagram, const Endpoint&) {
  network.onSend(datagram);
  return static_cast<int>(datagram.size());
}

int DatagramSocket::ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender) {
  if (network.incoming.empty()) return -1;
  const std::vector<uint8_t> datagram = std::move(network.incoming.front());
  network.incoming.pop_front();
  if (datagram.size() > buffer.size()) return -1;
  std::ranges::copy(datagram, buffer.begin());
  sender = fuzz::kDevice;
  return static_cast<int>(datagram.size());
}

}  // namespace media_adapter::platform

// platform/*.h over the simulated world, each function a line or two.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <tuple>
#include <utility>

#include "platform/adapters.h"
#include "platform/clock.h"
#include "platform/datagram_socket.h"
#include "platform/event.h"
#include "platform/load_hook.h"
#include "platform/notices.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "platform/waiter.h"
#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {
namespace {

// What it takes to find that nothing has come: who looks again and again sees time go on.
constexpr std::chrono::microseconds kOneLook{1};
constexpr uint16_t kFirstPort = 50000;

sim::SimWorld& World() { return sim::SimWorld::Current(); }

}  // namespace

void AllowUnloading(bool (*)()) {}

MacAddress FirstAdapterAddress() { return World().adapter; }

std::chrono::nanoseconds MonotonicNow() { return World().Now(); }

LocalTime CurrentLocalTime() { return World().localTime; }

void Sleep(std::chrono::milliseconds duration) { World().Advance(duration); }

uint32_t ProcessId() { return World().processId; }

void ShowError(const char* text) {
  World().Do([&] { World().errors.emplace_back(text); });
}

void TraceLine(const char* text) {
  World().Do([&] { World().traces.emplace_back(text); });
}

uint32_t LastSystemError() { return World().lastSystemError; }

struct Event::Impl {
  bool isSet = false;
};

Event::Event() : impl_(new (std::nothrow) Impl) {}
Event::~Event() = default;

void Event::Set() {
  if (!impl_) return;
  World().Do([this] { impl_->isSet = true; });
}

bool Event::Wait(std::chrono::milliseconds timeout) {
  if (!impl_) return false;
  auto& world = World();
  return world.Wait([this] { return std::exchange(impl_->isSet, false); }, world.Now() + timeout);
}

struct Thread::Impl {
  std::thread thread;
  std::shared_ptr<bool> ended = std::make_shared<bool>(false);
};

Thread::Thread() = default;

Thread::~Thread() {
  if (impl_ && impl_->thread.joinable()) impl_->thread.detach();
}

bool Thread::Start(void (*entry)()) {
  if (impl_) return false;
  auto impl = std::make_shared<Impl>();
  auto thread = World().StartThread(entry, impl->ended);
  if (!thread) return false;
  impl->thread = std::move(*thread);
  impl_ = std::move(impl);
  return true;
}

bool Thread::Wait(std::chrono::milliseconds timeout) {
  auto& world = World();
  if (!impl_) return true;
  if (!world.Wait([this] { return *impl_->ended; }, world.Now() + timeout)) return false;
  if (impl_->thread.joinable()) impl_->thread.join();
  return true;
}

// In virtual time no worker is ever slow: one that does not end by itself hangs.
bool Thread::StopByForce() {
  std::fputs("The library's worker did not end by itself.\n", stderr);
  std::abort();
}

struct Waiter::Impl {
  bool isWoken = false;
  std::intptr_t socket = -1;  // the system's handle: a socket that is opened anew is another one
};

Waiter::Waiter() : impl_(std::make_unique<Impl>()) {}
Waiter::~Waiter() = default;

void Waiter::Wake() {
  World().Do([this] { impl_->isWoken = true; });
}

void Waiter::Watch(const DatagramSocket* socket) { impl_->socket = socket != nullptr ? socket->Handle() : -1; }

Waiter::Outcome Waiter::Wait(std::optional<std::chrono::nanoseconds> deadline) {
  auto& world = World();
  auto outcome = Outcome::TimedOut;
  const auto take = [&] {
    const bool isWoken = std::exchange(impl_->isWoken, false);
    outcome = isWoken ? Outcome::Woken : world.IsReadable(impl_->socket) ? Outcome::Readable : Outcome::TimedOut;
    return outcome != Outcome::TimedOut;
  };
  const auto start = world.Now();
  world.Wait(std::ref(take), deadline);  // a copy would take memory of the library's
  if (outcome == Outcome::Readable && world.Now() != start && world.wakeUp != start.zero()) world.Advance(world.wakeUp);
  return outcome;
}

bool StartSockets() { return !World().failing.sockets; }

bool DatagramSocket::Open(const char* localAddress) {
  Close();
  Ipv4Address address{};
  const in_addr_t number = localAddress != nullptr ? inet_addr(localAddress) : INADDR_ANY;
  std::memcpy(address.data(), &number, sizeof number);
  auto& world = World();
  const bool isOfHost = number == INADDR_ANY || std::ranges::count(world.hostAddresses, address) > 0;
  if (world.failing.open || !isOfHost) return false;
  world.Do([&] {
    handle_ = ++world.lastHandle;
    world.sockets[handle_].local = {address, static_cast<uint16_t>(kFirstPort + handle_)};
  });
  return true;
}

bool DatagramSocket::EnableBroadcast() {
  auto& world = World();
  return world.Do([&] { return IsOpen() && (world.sockets[handle_].broadcast = !world.failing.broadcast); });
}

void DatagramSocket::Close() {
  if (IsOpen()) World().Do([this] { World().sockets.erase(handle_); });
  handle_ = kNoHandle;
}

std::optional<Endpoint> DatagramSocket::LocalEndpoint() const {
  if (!IsOpen()) return std::nullopt;
  return World().Do([this] { return World().sockets[handle_].local; });
}

int DatagramSocket::SendTo(std::span<const uint8_t> datagram, const Endpoint& receiver) {
  auto& world = World();
  const auto send = [&] {
    if (world.failing.send || !IsOpen()) return false;
    auto [sender, mayBroadcast, received] = world.sockets[handle_];
    if (receiver.address == kBroadcastAddress && !mayBroadcast) return false;
    if (sender.address == Ipv4Address{}) sender.address = world.hostAddresses.front();
    world.Transmit({world.Now(), true, sender, receiver, {datagram.begin(), datagram.end()}});
    return true;
  };
  return world.Do(send) ? static_cast<int>(datagram.size()) : -1;
}

int DatagramSocket::ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender, Patience patience) {
  if (patience == Patience::Nap) return -1;  // the waiter sleeps in this world
  auto& world = World();
  sim::Datagram datagram;
  const bool isThere = world.Do([&] {
    if (!world.IsReadable(handle_)) return false;
    auto& received = world.sockets[handle_].received;
    std::tie(sender, datagram) = std::move(received.front());
    received.pop_front();
    return true;
  });
  if (!isThere) {
    ++world.emptyReceives;
    world.Advance(kOneLook);
  }
  if (!isThere || datagram.size() > buffer.size()) return -1;
  std::ranges::copy(datagram, buffer.begin());
  return static_cast<int>(datagram.size());
}

}  // namespace media_adapter::platform

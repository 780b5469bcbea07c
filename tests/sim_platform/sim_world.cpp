#include "tests/sim_platform/sim_world.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "protocol/wire.h"

namespace media_adapter::sim {
namespace {

SimWorld* current = nullptr;
thread_local bool isParticipant = false;

}  // namespace

thread_local int WorldMutex::depth = 0;

SimWorld::SimWorld(uint64_t seed) : generator_(seed) {
  current = this;
  isParticipant = true;
}

SimWorld::~SimWorld() {
  if (!sleepers_.empty()) AbortDeadlocked();
  current = nullptr;
}

SimWorld& SimWorld::Current() {
  if (current == nullptr) {
    std::fputs("The simulated platform was used without a world.\n", stderr);
    std::abort();
  }
  return *current;
}

Time SimWorld::Now() {
  std::lock_guard lock(mutex_);
  return now_;
}

void SimWorld::Advance(Time duration) {
  Wait([] { return false; }, Now() + duration);
}

// ---- Threads and time

bool SimWorld::Wait(const std::function<bool()>& take, std::optional<Time> deadline) {
  std::lock_guard lock(mutex_);
  if (take()) return true;
  if (deadline && *deadline <= now_) return false;
  Sleeper self{.take = take, .deadline = deadline, .participant = isParticipant};
  if (isParticipant) running_ = false;
  SleepUntilReleased(self);
  return self.taken;
}

// The caller holds the mutex, once.
void SimWorld::SleepUntilReleased(Sleeper& sleeper) {
  sleepers_.push_back(&sleeper);
  Schedule();
  sleeper.wake.wait(mutex_, [&] { return sleeper.released; });
}

std::optional<std::thread> SimWorld::StartThread(std::function<void()> body, std::shared_ptr<bool> ended) {
  std::lock_guard lock(mutex_);
  if (failing.thread) return std::nullopt;
  auto self = std::make_shared<Sleeper>();
  self->take = [] { return true; };
  sleepers_.push_back(self.get());
  return std::thread([this, self, body = std::move(body), ended = std::move(ended)] {
    isParticipant = true;
    {
      std::lock_guard threadLock(mutex_);
      self->wake.wait(mutex_, [&] { return self->released; });
    }
    body();
    std::lock_guard threadLock(mutex_);
    *ended = true;
    running_ = false;
    Schedule();
  });
}

SimWorld::Outside::Outside() {
  SimWorld& world = Current();
  std::lock_guard lock(world.mutex_);
  ++world.outside_;
  world.running_ = false;
  isParticipant = false;
  world.Schedule();
}

SimWorld::Outside::~Outside() {
  SimWorld& world = Current();
  std::lock_guard lock(world.mutex_);
  isParticipant = true;
  Sleeper self{.take = [] { return true; }, .deadline = {}};
  world.SleepUntilReleased(self);
  --world.outside_;
}

void SimWorld::Schedule() {
  if (scheduling_) return;
  scheduling_ = true;
  while (!running_ && !ReleaseOne()) {
    if (HappenNext()) continue;
    if (outside_ == 0 && !sleepers_.empty()) AbortDeadlocked();
    break;
  }
  scheduling_ = false;
}

// Lets the first sleeper go on that has what it waits for. True when a participant runs then.
bool SimWorld::ReleaseOne() {
  const auto ready = std::ranges::find_if(sleepers_, [](const Sleeper* sleeper) { return sleeper->take(); });
  if (ready == sleepers_.end()) return false;
  Release(**ready, true);
  return running_;
}

void SimWorld::Release(Sleeper& sleeper, bool taken) {
  sleepers_.remove(&sleeper);
  sleeper.taken = taken;
  sleeper.released = true;
  if (sleeper.participant) running_ = true;
  sleeper.wake.notify_all();
}

// Moves time to the next thing and lets it happen. At the same time arrivals go before devices, devices before
// deadlines, and otherwise what was there first. False when nothing is to come.
bool SimWorld::HappenNext() {
  std::optional<Time> next;
  const auto isEarlier = [&](std::optional<Time> time) { return time && (!next || *time < *next); };
  if (!arrivals_.empty()) next = arrivals_.begin()->first;
  simulator::DeviceModel* device = nullptr;
  for (const auto& candidate : devices_) {
    if (const auto time = candidate->NextTime(); isEarlier(time)) {
      next = time;
      device = candidate.get();
    }
  }
  Sleeper* sleeper = nullptr;
  for (Sleeper* candidate : sleepers_) {
    if (!isEarlier(candidate->deadline)) continue;
    next = candidate->deadline;
    sleeper = candidate;
  }
  if (!next) return false;
  now_ = std::max(now_, *next);
  if (sleeper != nullptr) {
    Release(*sleeper, false);
  } else if (device != nullptr) {
    const Endpoint sender{device->Identity().address, wire::kDevicePort};
    SendAll(sender, device->OnTime(now_));
  } else {
    while (!arrivals_.empty() && arrivals_.begin()->first <= now_) {
      const Arrival arrival = std::move(arrivals_.extract(arrivals_.begin()).mapped());
      Deliver(arrival);
    }
  }
  return true;
}

void SimWorld::AbortDeadlocked() const {
  std::fprintf(stderr, "Deadlock at %.6f s: %zu threads wait and nothing is to come. Datagrams so far: %zu\n",
               std::chrono::duration<double>(now_).count(), sleepers_.size(), transmitted_);
  std::abort();
}

// ---- Network

simulator::DeviceModel& SimWorld::Attach(std::unique_ptr<simulator::DeviceModel> device) {
  std::lock_guard lock(mutex_);
  devices_.push_back(std::move(device));
  return *devices_.back();
}

void SimWorld::Inject(const Endpoint& sender, Datagram bytes, Time delay) {
  std::lock_guard lock(mutex_);
  arrivals_.emplace(now_ + delay, Arrival{.toLibrary = true, .sender = sender, .bytes = std::move(bytes)});
}

void SimWorld::Deliver(const Arrival& arrival) {
  if (!arrival.toLibrary) {
    const Endpoint device{arrival.device->Identity().address, wire::kDevicePort};
    SendAll(device, arrival.device->OnDatagram(arrival.bytes, arrival.sender, now_));
    return;
  }
  for (auto& [handle, socket] : sockets_) {
    if (arrival.port != 0 && socket.local.port != arrival.port) continue;
    socket.received.emplace_back(arrival.sender, arrival.bytes);
  }
}

void SimWorld::SendAll(const Endpoint& sender, const std::vector<simulator::Outgoing>& datagrams) {
  for (const auto& [receiver, bytes] : datagrams) {
    Transmit({.time = now_, .sender = sender, .receiver = receiver, .bytes = bytes});
  }
}

void SimWorld::Transmit(const LoggedDatagram& datagram) {
  const size_t ordinal = transmitted_++;
  if (keepsLog) log_.push_back(datagram);
  Fate its = fate ? fate(datagram, ordinal) : Fate{};
  const auto happens = [&](double probability) {
    return probability > 0 && std::uniform_real_distribution<>(0, 1)(generator_) < probability;
  };
  if (happens(random.loss)) its.copies = 0;
  if (happens(random.duplication)) its.copies *= 2;
  if (happens(random.reordering)) its.delay += latency * std::uniform_int_distribution<>(1, 30)(generator_) / 10;

  const Time when = now_ + latency + its.delay;
  const Endpoint sender = its.sender.value_or(datagram.sender);
  for (unsigned copy = 0; copy < its.copies; ++copy) {
    Dispatch(datagram, sender, its.bytes ? *its.bytes : datagram.bytes, when);
  }
}

void SimWorld::Dispatch(const LoggedDatagram& datagram, const Endpoint& sender, const Datagram& bytes, Time when) {
  if (!datagram.fromLibrary) {
    arrivals_.emplace(when,
                      Arrival{.toLibrary = true, .sender = sender, .port = datagram.receiver.port, .bytes = bytes});
    return;
  }
  if (datagram.receiver.port != wire::kDevicePort) return;
  for (const auto& device : devices_) {
    const auto& address = datagram.receiver.address;
    if (address != platform::kBroadcastAddress && address != device->Identity().address) continue;
    arrivals_.emplace(when, Arrival{.device = device.get(), .sender = sender, .bytes = bytes});
  }
}

std::intptr_t SimWorld::OpenSocket(const char* localAddress) {
  std::lock_guard lock(mutex_);
  platform::Ipv4Address address{};
  if (localAddress != nullptr) {
    const in_addr_t number = inet_addr(localAddress);
    std::memcpy(address.data(), &number, sizeof(number));
  }
  const bool isAny = address == platform::Ipv4Address{};
  if (failing.open || (!isAny && std::ranges::find(hostAddresses, address) == hostAddresses.end())) return -1;
  sockets_.emplace(nextHandle_, Socket{.local = {address, nextPort_++}});
  return nextHandle_++;
}

void SimWorld::CloseSocket(std::intptr_t handle) {
  std::lock_guard lock(mutex_);
  sockets_.erase(handle);
}

bool SimWorld::EnableBroadcast(std::intptr_t handle) {
  std::lock_guard lock(mutex_);
  const auto socket = sockets_.find(handle);
  if (failing.broadcast || socket == sockets_.end()) return false;
  return socket->second.broadcast = true;
}

std::optional<Endpoint> SimWorld::LocalEndpoint(std::intptr_t handle) {
  std::lock_guard lock(mutex_);
  const auto socket = sockets_.find(handle);
  if (socket == sockets_.end()) return std::nullopt;
  return socket->second.local;
}

bool SimWorld::Send(std::intptr_t handle, std::span<const uint8_t> bytes, const Endpoint& receiver) {
  std::lock_guard lock(mutex_);
  const auto socket = sockets_.find(handle);
  if (failing.send || socket == sockets_.end()) return false;
  if (receiver.address == platform::kBroadcastAddress && !socket->second.broadcast) return false;
  Endpoint sender = socket->second.local;
  if (sender.address == platform::Ipv4Address{}) sender.address = hostAddresses.front();
  Transmit({.time = now_,
            .fromLibrary = true,
            .sender = sender,
            .receiver = receiver,
            .bytes = Datagram(bytes.begin(), bytes.end())});
  return true;
}

std::optional<Datagram> SimWorld::Receive(std::intptr_t handle, Endpoint& sender) {
  std::lock_guard lock(mutex_);
  const auto socket = sockets_.find(handle);
  if (socket == sockets_.end() || socket->second.received.empty()) return std::nullopt;
  auto [from, bytes] = std::move(socket->second.received.front());
  socket->second.received.pop_front();
  sender = from;
  return bytes;
}

bool SimWorld::IsReadable(std::intptr_t handle) const {
  const auto socket = sockets_.find(handle);
  return socket != sockets_.end() && !socket->second.received.empty();
}

}  // namespace media_adapter::sim

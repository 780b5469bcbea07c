#include "tests/sim_platform/sim_world.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "protocol/wire.h"

namespace media_adapter::sim {
namespace {

thread_local bool isParticipant = false;

}  // namespace

SimWorld::SimWorld() {
  current = this;
  isParticipant = true;
}

SimWorld::~SimWorld() {
  if (!sleepers_.empty()) AbortDeadlocked();
  current = nullptr;
}

Time SimWorld::Now() {
  const Inside inside(*this);
  return now_;
}

void SimWorld::Advance(Time duration) {
  Wait([] { return false; }, Now() + duration);
}

// ---- Threads and time

bool SimWorld::Wait(const std::function<bool()>& take, std::optional<Time> deadline) {
  const Inside inside(*this);
  if (take()) return true;
  if (deadline && *deadline <= now_) return false;
  Sleeper self{.take = take, .deadline = deadline, .participant = isParticipant};
  if (isParticipant) running_ = false;
  sleepers_.push_back(&self);
  Schedule();
  self.wake.wait(mutex_, [&] { return self.released; });
  return self.taken;
}

std::optional<std::thread> SimWorld::StartThread(std::function<void()> body, std::shared_ptr<bool> ended) {
  const Inside inside(*this);
  if (failing.thread) return std::nullopt;
  auto self = std::make_shared<Sleeper>();
  self->take = [] { return true; };
  sleepers_.push_back(self.get());
  return std::thread([this, self, body = std::move(body), ended = std::move(ended)] {
    isParticipant = true;
    {
      const Inside insideThread(*this);
      self->wake.wait(mutex_, [&] { return self->released; });
    }
    body();
    const Inside insideThread(*this);
    *ended = true;
    running_ = false;
    Schedule();
  });
}

void SimWorld::Schedule() {
  if (scheduling_) return;
  scheduling_ = true;
  while (!running_ && !ReleaseOne()) {
    if (HappenNext()) continue;
    if (!sleepers_.empty()) AbortDeadlocked();
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
      arrivals_.extract(arrivals_.begin()).mapped()();
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
  const Inside inside(*this);
  devices_.push_back(std::move(device));
  return *devices_.back();
}

void SimWorld::Inject(const Endpoint& sender, Datagram bytes, Time delay, uint16_t port) {
  const Inside inside(*this);
  arrivals_.emplace(now_ + delay, [this, sender, port, bytes = std::move(bytes)] {
    for (auto& [handle, socket] : sockets) {
      if (port == 0 || socket.local.port == port) socket.received.emplace_back(sender, bytes);
    }
  });
}

void SimWorld::SendAll(const Endpoint& sender, const std::vector<simulator::Outgoing>& datagrams) {
  for (const auto& [receiver, bytes] : datagrams) {
    Transmit({.time = now_, .sender = sender, .receiver = receiver, .bytes = bytes});
  }
}

void SimWorld::Transmit(const LoggedDatagram& datagram) {
  ++transmitted_;
  if (keepsLog) log_.push_back(datagram);
  const Fate its = fate ? fate(datagram) : Fate{};
  const Endpoint sender = its.sender.value_or(datagram.sender);
  const Endpoint& receiver = datagram.receiver;
  const auto& bytes = its.bytes ? *its.bytes : datagram.bytes;
  const Time delay = latency + its.delay;
  for (unsigned copy = 0; copy < its.copies; ++copy) {
    if (!datagram.fromLibrary) Inject(sender, bytes, delay, receiver.port);
    for (const auto& device : devices_) {
      const Endpoint own{device->Identity().address, wire::kDevicePort};
      const bool isMeant = receiver.address == platform::kBroadcastAddress || receiver.address == own.address;
      if (!datagram.fromLibrary || receiver.port != own.port || !isMeant) continue;
      arrivals_.emplace(now_ + delay,
                        [=, this, to = device.get()] { SendAll(own, to->OnDatagram(bytes, sender, now_)); });
    }
  }
}

}  // namespace media_adapter::sim

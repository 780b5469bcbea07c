#include "platform/waiter.h"

#include <utility>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

struct Waiter::Impl {
  bool isWoken = false;
  const DatagramSocket* socket = nullptr;
};

Waiter::Waiter() : impl_(std::make_unique<Impl>()) {}
Waiter::~Waiter() = default;

void Waiter::Wake() {
  sim::SimWorld::Current().Do([this] { impl_->isWoken = true; });
}

void Waiter::Watch(const DatagramSocket* socket) { impl_->socket = socket; }

Waiter::Outcome Waiter::Wait(std::optional<std::chrono::nanoseconds> deadline) {
  auto& world = sim::SimWorld::Current();
  auto outcome = Outcome::TimedOut;
  const auto take = [&] {
    if (std::exchange(impl_->isWoken, false)) {
      outcome = Outcome::Woken;
    } else if (impl_->socket != nullptr && world.IsReadable(impl_->socket->Handle())) {
      outcome = Outcome::Readable;
    } else {
      return false;
    }
    return true;
  };
  world.Wait(take, deadline);
  return outcome;
}

}  // namespace media_adapter::platform

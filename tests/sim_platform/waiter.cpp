#include "platform/waiter.h"

#include <utility>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

struct Waiter::Impl {
  bool isWoken = false;
  std::intptr_t socket = -1;  // the system's handle: a socket that is opened anew is another one
};

Waiter::Waiter() : impl_(std::make_unique<Impl>()) {}
Waiter::~Waiter() = default;

void Waiter::Wake() {
  sim::SimWorld::Current().Do([this] { impl_->isWoken = true; });
}

void Waiter::Watch(const DatagramSocket* socket) { impl_->socket = socket != nullptr ? socket->Handle() : -1; }

Waiter::Outcome Waiter::Wait(std::optional<std::chrono::nanoseconds> deadline) {
  auto& world = sim::SimWorld::Current();
  auto outcome = Outcome::TimedOut;
  const auto take = [&] {
    if (std::exchange(impl_->isWoken, false)) {
      outcome = Outcome::Woken;
    } else if (world.IsReadable(impl_->socket)) {
      outcome = Outcome::Readable;
    } else {
      return false;
    }
    return true;
  };
  world.Wait(std::ref(take), deadline);  // a copy would take memory of the library's
  return outcome;
}

}  // namespace media_adapter::platform

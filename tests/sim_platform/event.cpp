#include "platform/event.h"

#include <utility>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

struct Event::Impl {
  bool isSet = false;
};

Event::Event() : impl_(std::make_unique<Impl>()) {}
Event::~Event() = default;

void Event::Set() {
  sim::SimWorld::Current().Do([this] { impl_->isSet = true; });
}

bool Event::Wait(std::chrono::milliseconds timeout) {
  auto& world = sim::SimWorld::Current();
  return world.Wait([this] { return std::exchange(impl_->isSet, false); }, world.Now() + timeout);
}

}  // namespace media_adapter::platform

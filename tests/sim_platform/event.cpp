#include "platform/event.h"

#include <new>
#include <utility>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

struct Event::Impl {
  bool isSet = false;
};

Event::Event() : impl_(new (std::nothrow) Impl) {}
Event::~Event() = default;

void Event::Set() {
  if (!impl_) return;
  sim::SimWorld::Current().Do([this] { impl_->isSet = true; });
}

bool Event::Wait(std::chrono::milliseconds timeout) {
  if (!impl_) return false;
  auto& world = sim::SimWorld::Current();
  return world.Wait([this] { return std::exchange(impl_->isSet, false); }, world.Now() + timeout);
}

}  // namespace media_adapter::platform

#include "platform/thread.h"

#include <cstdio>
#include <cstdlib>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

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
  auto thread = sim::SimWorld::Current().StartThread(entry, impl->ended);
  if (!thread) return false;
  impl->thread = std::move(*thread);
  impl_ = std::move(impl);
  return true;
}

bool Thread::Wait(std::chrono::milliseconds timeout) {
  auto& world = sim::SimWorld::Current();
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

}  // namespace media_adapter::platform

#include "platform/event.h"

#include <condition_variable>
#include <mutex>
#include <new>

namespace media_adapter::platform {

struct Event::Impl {
  std::mutex mutex;
  std::condition_variable changed;
  bool isSet = false;
};

Event::Event() : impl_(new (std::nothrow) Impl) {}
Event::~Event() = default;

void Event::Set() {
  if (!impl_) return;
  {
    std::lock_guard lock(impl_->mutex);
    impl_->isSet = true;
  }
  impl_->changed.notify_one();
}

bool Event::Wait(std::chrono::milliseconds timeout) {
  if (!impl_) return false;
  std::unique_lock lock(impl_->mutex);
  const bool wasSet = impl_->changed.wait_for(lock, timeout, [this] { return impl_->isSet; });
  impl_->isSet = false;
  return wasSet;
}

}  // namespace media_adapter::platform

#include "platform/event.h"

#include <new>

#include "platform/windows/system.h"

namespace media_adapter::platform {

struct Event::Impl {
  explicit Impl(HANDLE event) : handle(event) {}
  ~Impl() { CloseHandle(handle); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  HANDLE handle;
};

Event::Event() {
  const HANDLE handle = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  if (handle == nullptr) return;
  impl_.reset(new (std::nothrow) Impl(handle));
  if (!impl_) CloseHandle(handle);
}
Event::~Event() = default;

void Event::Set() {
  if (impl_) SetEvent(impl_->handle);
}

bool Event::Wait(std::chrono::milliseconds timeout) {
  return impl_ && WaitForSingleObject(impl_->handle, static_cast<DWORD>(timeout.count())) == WAIT_OBJECT_0;
}

}  // namespace media_adapter::platform

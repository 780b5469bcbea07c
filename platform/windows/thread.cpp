// A thread needs the loader's lock for its very end, and who unloads the library holds that lock while it waits. So a
// thread says by an event that it has done its work, then waits for ever, holding nothing; its owner ends it there.
#include "platform/thread.h"

#include <array>

#include "platform/windows/system.h"

namespace media_adapter::platform {
namespace {

constexpr DWORD kForceTimeout = 1000;  // milliseconds

}  // namespace

struct Thread::Impl {
  explicit Impl(void (*toRun)()) : entry(toRun) {}
  ~Impl() {
    if (ended != nullptr) CloseHandle(ended);
    if (handle != nullptr) CloseHandle(handle);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  static DWORD WINAPI Run(void* argument) {
    const Impl& self = *static_cast<Impl*>(argument);
    self.entry();
    SetEvent(self.ended);
    ::Sleep(INFINITE);
    return 0;
  }

  bool End() const {
    TerminateThread(handle, 0);
    return WaitForSingleObject(handle, kForceTimeout) == WAIT_OBJECT_0;
  }

  void (*entry)();
  HANDLE ended = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  HANDLE handle = nullptr;
};

Thread::Thread() = default;

Thread::~Thread() {
  // One that still runs keeps its record.
  if (impl_ && !Wait(std::chrono::milliseconds(0))) new std::shared_ptr<Impl>(impl_);
}

bool Thread::Start(void (*entry)()) {
  if (impl_) return false;
  auto impl = std::make_shared<Impl>(entry);
  if (impl->ended == nullptr) return false;
  impl->handle = CreateThread(nullptr, 0, &Impl::Run, impl.get(), 0, nullptr);
  if (impl->handle == nullptr) return false;
  SetThreadPriority(impl->handle, THREAD_PRIORITY_HIGHEST);
  impl_ = std::move(impl);
  return true;
}

bool Thread::Wait(std::chrono::milliseconds timeout) {
  if (!impl_) return true;
  const std::array<HANDLE, 2> either = {impl_->ended, impl_->handle};
  const DWORD outcome = WaitForMultipleObjects(static_cast<DWORD>(either.size()), either.data(), FALSE,
                                               static_cast<DWORD>(timeout.count()));
  return outcome != WAIT_TIMEOUT && outcome != WAIT_FAILED && impl_->End();
}

bool Thread::StopByForce() { return !impl_ || impl_->End(); }

}  // namespace media_adapter::platform

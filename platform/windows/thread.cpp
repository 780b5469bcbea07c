// The thread is the one of a thread pool of its own. Who unloads the library holds the loader's lock, which an ending
// thread needs, and must not unmap code that is still running: the pool says when the thread has left the library's
// code for good, and ends it once the lock is free.
#include "platform/thread.h"

#include <atomic>

#include "platform/windows/system.h"

namespace media_adapter::platform {
namespace {

constexpr DWORD kForceTimeout = 1000;  // milliseconds

}  // namespace

struct Thread::Impl {
  explicit Impl(void (*toRun)()) : entry(toRun) {
    if (pool == nullptr || ended == nullptr) return;
    InitializeThreadpoolEnvironment(&environment);
    SetThreadpoolCallbackPool(&environment, pool);
    SetThreadpoolThreadMaximum(pool, 1);
    if (SetThreadpoolThreadMinimum(pool, 1)) work = CreateThreadpoolWork(&Impl::Run, this, &environment);
  }
  // Of a thread that has ended, or never began.
  ~Impl() {
    if (work != nullptr) CloseThreadpoolWork(work);
    if (pool != nullptr) CloseThreadpool(pool);
    if (ended != nullptr) CloseHandle(ended);
    if (handle != nullptr) CloseHandle(handle);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  static void CALLBACK Run(TP_CALLBACK_INSTANCE* instance, void* argument, TP_WORK*) {
    Impl& self = *static_cast<Impl*>(argument);
    const HANDLE thread = GetCurrentThread();
    HANDLE handle = nullptr;
    DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &handle, 0, FALSE, DUPLICATE_SAME_ACCESS);
    self.handle = handle;
    SetEventWhenCallbackReturns(instance, self.ended);
    SetThreadPriority(thread, THREAD_PRIORITY_HIGHEST);
    self.entry();
    SetThreadPriority(thread, THREAD_PRIORITY_NORMAL);  // as the pool wants it back
  }

  bool HasEnded(DWORD timeout) const { return WaitForSingleObject(ended, timeout) == WAIT_OBJECT_0; }

  void (*entry)();
  TP_POOL* pool = CreateThreadpool(nullptr);
  TP_CALLBACK_ENVIRON environment{};
  TP_WORK* work = nullptr;
  HANDLE ended = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::atomic<HANDLE> handle = nullptr;  // from when it runs
};

Thread::Thread() = default;

Thread::~Thread() {
  // One that still runs keeps its record.
  if (impl_ && !impl_->HasEnded(0)) new std::shared_ptr<Impl>(impl_);
}

bool Thread::Start(void (*entry)()) {
  if (impl_) return false;
  auto impl = std::make_shared<Impl>(entry);
  if (impl->work == nullptr) return false;
  SubmitThreadpoolWork(impl->work);
  impl_ = std::move(impl);
  return true;
}

bool Thread::Wait(std::chrono::milliseconds timeout) {
  return !impl_ || impl_->HasEnded(static_cast<DWORD>(timeout.count()));
}

// The pool never hears of it: its record, and the thread's, stay behind.
bool Thread::StopByForce() {
  if (!impl_ || impl_->HasEnded(0)) return true;
  const HANDLE handle = impl_->handle;
  if (handle == nullptr) return false;
  TerminateThread(handle, 0);
  return WaitForSingleObject(handle, kForceTimeout) == WAIT_OBJECT_0 && SetEvent(impl_->ended);
}

}  // namespace media_adapter::platform

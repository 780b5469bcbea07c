// Cancellation is the force: it is switched off for the thread, and only the calls of LocalFile that can block for ever
// (a file system that has gone away) switch it on while they last.
#include "platform/thread.h"

#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <condition_variable>
#include <mutex>

namespace media_adapter::platform {
namespace {

constexpr int kRaisedPriority = -2;  // nice value: a little above ordinary threads
constexpr std::chrono::milliseconds kForceTimeout{1000};

// Signals are for the application's own threads: while one exists, threads are started that never see any.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

struct Thread::Impl {
  void (*entry)() = nullptr;
  pthread_t handle{};
  bool joined = false;

  std::mutex mutex;  // guards ended
  std::condition_variable endedChanged;
  bool ended = false;

  void MarkEnded() {
    std::lock_guard lock(mutex);
    ended = true;
    endedChanged.notify_all();
  }

  static void* Run(void* argument) {
    // The thread shares the record: a forced end may come after its owner has gone.
    const std::unique_ptr<std::shared_ptr<Impl>> self(static_cast<std::shared_ptr<Impl>*>(argument));
    struct EndMark {
      Impl& impl;
      ~EndMark() { impl.MarkEnded(); }
    } mark{**self};
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    setpriority(PRIO_PROCESS, 0, kRaisedPriority);  // this thread alone on Linux; without the right, it stays as it is
    (*self)->entry();
    return nullptr;
  }
};

Thread::Thread() = default;

Thread::~Thread() {
  if (impl_ && !Wait(std::chrono::milliseconds(0))) pthread_detach(impl_->handle);
}

bool Thread::Start(void (*entry)()) {
  if (impl_) return false;
  auto impl = std::make_shared<Impl>();
  impl->entry = entry;
  auto argument = std::make_unique<std::shared_ptr<Impl>>(impl);
  const SignalsHeld held;
  if (pthread_create(&impl->handle, nullptr, &Impl::Run, argument.get()) != 0) return false;
  (void)argument.release();  // the thread's now
  impl_ = std::move(impl);
  return true;
}

bool Thread::Wait(std::chrono::milliseconds timeout) {
  if (!impl_ || impl_->joined) return true;
  {
    std::unique_lock lock(impl_->mutex);
    if (!impl_->endedChanged.wait_for(lock, timeout, [this] { return impl_->ended; })) return false;
  }
  pthread_join(impl_->handle, nullptr);  // it has only its return left
  impl_->joined = true;
  return true;
}

bool Thread::StopByForce() {
  if (!impl_ || impl_->joined) return true;
  pthread_cancel(impl_->handle);
  return Wait(kForceTimeout);
}

}  // namespace media_adapter::platform

// The worker's thread: started at raised priority where the system allows it, waited for, and stopped by force as the
// last resort. One owner starts and stops it; nothing here is for the thread itself to call.
#pragma once

#include <chrono>
#include <memory>

namespace media_adapter::platform {

class Thread {
 public:
  Thread();
  // A thread that has ended is joined; one that still runs is left to itself.
  ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Runs `entry` on a new thread. False when there is none to be had, or one was started before.
  bool Start(void (*entry)());
  bool IsStarted() const { return impl_ != nullptr; }
  // True once the thread has ended, false when it still runs after `timeout`.
  bool Wait(std::chrono::milliseconds timeout);
  // Ends a thread that is stuck in local file I/O, as far as the system can, and waits a moment for its end.
  bool StopByForce();

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace media_adapter::platform

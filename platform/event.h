// An auto-reset event: Set wakes one waiter, or the next one to come. Created not signalled. Any thread may use it.
#pragma once

#include <chrono>
#include <memory>

namespace media_adapter::platform {

class Event {
 public:
  Event();
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // False when the system had no event to give; Wait then times out and Set does nothing.
  bool IsValid() const { return impl_ != nullptr; }
  void Set();
  // True when the event was signalled; it is not signalled any more then. False after `timeout`.
  bool Wait(std::chrono::milliseconds timeout);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace media_adapter::platform

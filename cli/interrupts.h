// What the tool does about SIGINT, SIGTERM, SIGHUP and SIGPIPE. A request cannot be called back, so an interrupt ends
// the process as the signal does by default (a shell shows 130 for SIGINT); CleanupOnSignal puts right what must not
// be left behind. Only a test is ended by SIGINT without ending the process: InterruptWatch.
#pragma once

namespace media_adapter::cli {

// While it lives, `cleanup` runs before a signal ends the process. It may only use what signal handlers may use. A
// signal that the process was started to ignore stays ignored.
class CleanupOnSignal {
 public:
  explicit CleanupOnSignal(void (*cleanup)());
  ~CleanupOnSignal();
  CleanupOnSignal(const CleanupOnSignal&) = delete;
  CleanupOnSignal& operator=(const CleanupOnSignal&) = delete;
};

// While it lives, SIGINT is noted and does nothing else.
class InterruptWatch {
 public:
  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  bool IsInterrupted() const;
};

}  // namespace media_adapter::cli

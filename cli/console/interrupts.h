// What the tool does about SIGINT, SIGTERM, SIGHUP and SIGPIPE. As a rule they end the process as by default (a shell
// shows 130 for SIGINT), and CleanupOnSignal puts right what must not be left behind. A request cannot be called back,
// so where one that ends half-way does harm, InterruptWatch lets it come to its end first.
#pragma once

#include <string>

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

// While one lives, the first signal that asks to end is noted, and says `notice` on standard error when there is one;
// the next ends the process at once. May be nested: the notice of the outer one is said.
class InterruptWatch {
 public:
  explicit InterruptWatch(const char* notice = nullptr);
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

 private:
  const char* const before_;
};

// True once a signal was noted.
bool IsInterrupted();
// Takes the note back: the command that it was meant for has ended.
void ForgetInterrupt();
// Ends the process as the noted signal would have done; does nothing when there is none.
void EndIfInterrupted();

// While it lives, a signal that ends the process says `text` first: what may be left of the running request.
class PartingWords {
 public:
  explicit PartingWords(std::string text);
  ~PartingWords();
  PartingWords(const PartingWords&) = delete;
  PartingWords& operator=(const PartingWords&) = delete;

 private:
  const std::string text_;
};

}  // namespace media_adapter::cli

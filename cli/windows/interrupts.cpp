// The system tells of an interrupt on a thread of its own.
#include "cli/console/interrupts.h"

#include <array>
#include <atomic>

#include "cli/windows/console.h"

namespace media_adapter::cli {
namespace {

constexpr UINT kInterruptedCode = 0xC000013A;  // as the system ends a process at Ctrl-C

// At most a hidden prompt on top of a temporary folder, and below them the consoles' modes.
std::array<std::atomic<void (*)()>, 4> cleanups;
std::atomic<size_t> cleanupCount;
std::atomic<int> watchCount;
std::atomic<bool> isNoted;
std::atomic<const char*> firstNotice;
std::atomic<const char*> partingWords;
std::atomic<bool> isHandled;

void Say(const char* text) {
  if (text != nullptr) WriteText(GetStdHandle(STD_ERROR_HANDLE), text);
}

void CleanUp() {
  for (size_t i = cleanupCount.exchange(0); i-- > 0;) cleanups[i].load()();
}

// What is not dealt with ends the process.
BOOL WINAPI OnEvent(DWORD event) {
  const bool mayWait = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  if (mayWait && watchCount > 0 && !isNoted.exchange(true)) {
    Say(firstNotice);
    return TRUE;
  }
  CleanUp();
  Say(partingWords);
  return FALSE;
}

void HandleEvents() {
  if (!isHandled.exchange(true)) SetConsoleCtrlHandler(OnEvent, TRUE);
}

}  // namespace

CleanupOnSignal::CleanupOnSignal(void (*cleanup)()) {
  cleanups[cleanupCount] = cleanup;
  ++cleanupCount;
  HandleEvents();
}

CleanupOnSignal::~CleanupOnSignal() { --cleanupCount; }

InterruptWatch::InterruptWatch(const char* notice) : before_(firstNotice) {
  if (before_ == nullptr) firstNotice = notice;
  ++watchCount;
  HandleEvents();
}

InterruptWatch::~InterruptWatch() {
  --watchCount;
  firstNotice = before_;
}

bool IsInterrupted() { return isNoted; }

void ForgetInterrupt() { isNoted = false; }

void EndIfInterrupted() {
  if (!isNoted) return;
  CleanUp();
  ExitProcess(kInterruptedCode);
}

PartingWords::PartingWords(std::string text) : text_(std::move(text)) { partingWords = text_.c_str(); }

PartingWords::~PartingWords() { partingWords = nullptr; }

}  // namespace media_adapter::cli

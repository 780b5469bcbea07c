// The system tells of an interrupt on a thread of its own.
#include "cli/console/interrupts.h"

#include <array>
#include <atomic>

#include "cli/windows/console.h"

namespace media_adapter::cli {
namespace {

constexpr UINT kInterruptedCode = 0xC000013A;  // as the system ends a process at Ctrl-C

// What is done at the end, and its lock, which the interrupt that ends the process keeps: another thread that would add
// or take away something then waits for the end. The same thread may, as when the runtime destroys the static objects.
struct EndSection : CRITICAL_SECTION {
  EndSection() { InitializeCriticalSection(this); }
} endSection;
std::array<void (*)(), 4> cleanups;  // at most a hidden prompt, and below it the consoles' modes
size_t cleanupCount = 0;
const char* partingWords = nullptr;

std::atomic<int> watchCount;
std::atomic<bool> isNoted;
std::atomic<const char*> firstNotice;
std::atomic<bool> isHandled;

struct EndLock {
  EndLock() { EnterCriticalSection(&endSection); }
  ~EndLock() { LeaveCriticalSection(&endSection); }
  EndLock(const EndLock&) = delete;
  EndLock& operator=(const EndLock&) = delete;
};

void Say(const char* text) {
  if (text != nullptr) WriteText(GetStdHandle(STD_ERROR_HANDLE), text);
}

[[noreturn]] void EndInterrupted() {
  EnterCriticalSection(&endSection);
  for (size_t i = cleanupCount; i-- > 0;) cleanups[i]();
  Say(partingWords);
  ExitProcess(kInterruptedCode);
}

BOOL WINAPI OnEvent(DWORD event) {
  const bool mayWait = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  if (mayWait && watchCount > 0 && !isNoted.exchange(true)) {
    Say(firstNotice);
    return TRUE;
  }
  EndInterrupted();
}

void HandleEvents() {
  if (!isHandled.exchange(true)) SetConsoleCtrlHandler(OnEvent, TRUE);
}

}  // namespace

CleanupOnSignal::CleanupOnSignal(void (*cleanup)()) {
  const EndLock lock;
  cleanups[cleanupCount++] = cleanup;
  HandleEvents();
}

CleanupOnSignal::~CleanupOnSignal() {
  const EndLock lock;
  --cleanupCount;
}

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
  if (isNoted) EndInterrupted();
}

PartingWords::PartingWords(std::string text) : text_(std::move(text)) {
  const EndLock lock;
  partingWords = text_.c_str();
}

PartingWords::~PartingWords() {
  const EndLock lock;
  partingWords = nullptr;
}

}  // namespace media_adapter::cli

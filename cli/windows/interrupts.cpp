// The system tells of an interrupt on a thread of its own.
#include "cli/interrupts.h"

#include <windows.h>

#include <array>
#include <atomic>

namespace media_adapter::cli {
namespace {

// At most a hidden prompt on top of a temporary folder.
std::array<std::atomic<void (*)()>, 4> cleanups;
std::atomic<size_t> cleanupCount;
std::atomic<bool> interrupted;

// What is not dealt with ends the process.
BOOL WINAPI CleanUp(DWORD) {
  for (size_t i = cleanupCount.exchange(0); i-- > 0;) cleanups[i].load()();
  return FALSE;
}

BOOL WINAPI NoteInterrupt(DWORD event) {
  if (event != CTRL_C_EVENT) return FALSE;
  interrupted = true;
  return TRUE;
}

}  // namespace

CleanupOnSignal::CleanupOnSignal(void (*cleanup)()) {
  cleanups[cleanupCount] = cleanup;
  if (cleanupCount.fetch_add(1) == 0) SetConsoleCtrlHandler(CleanUp, TRUE);
}

CleanupOnSignal::~CleanupOnSignal() {
  if (cleanupCount.fetch_sub(1) == 1) SetConsoleCtrlHandler(CleanUp, FALSE);
}

InterruptWatch::InterruptWatch() {
  interrupted = false;
  SetConsoleCtrlHandler(NoteInterrupt, TRUE);
}

InterruptWatch::~InterruptWatch() { SetConsoleCtrlHandler(NoteInterrupt, FALSE); }

bool InterruptWatch::IsInterrupted() const { return interrupted; }

}  // namespace media_adapter::cli

#include "cli/interrupts.h"

#include <array>
#include <atomic>
#include <csignal>

namespace media_adapter::cli {
namespace {

constexpr std::array<int, 4> kDeadlySignals = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

// At most a hidden prompt on top of a temporary folder.
std::array<std::atomic<void (*)()>, 4> cleanups;
std::atomic<size_t> cleanupCount;
std::atomic<bool> interrupted;

static_assert(decltype(cleanups)::value_type::is_always_lock_free && decltype(interrupted)::is_always_lock_free);

void SetHandler(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

void CleanUpAndDie(int signal) {
  for (size_t i = cleanupCount.exchange(0); i-- > 0;) cleanups[i].load()();
  SetHandler(signal, SIG_DFL);
  raise(signal);
}

void NoteInterrupt(int) { interrupted = true; }

bool IsIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace

CleanupOnSignal::CleanupOnSignal(void (*cleanup)()) {
  cleanups[cleanupCount] = cleanup;
  if (cleanupCount.fetch_add(1) > 0) return;
  for (const int signal : kDeadlySignals) {
    if (!IsIgnored(signal)) SetHandler(signal, CleanUpAndDie);
  }
}

CleanupOnSignal::~CleanupOnSignal() {
  if (cleanupCount.fetch_sub(1) > 1) return;
  for (const int signal : kDeadlySignals) {
    if (!IsIgnored(signal)) SetHandler(signal, SIG_DFL);
  }
}

InterruptWatch::InterruptWatch() {
  interrupted = false;
  if (!IsIgnored(SIGINT)) SetHandler(SIGINT, NoteInterrupt);
}

InterruptWatch::~InterruptWatch() {
  if (!IsIgnored(SIGINT)) SetHandler(SIGINT, SIG_DFL);
}

bool InterruptWatch::IsInterrupted() const { return interrupted; }

}  // namespace media_adapter::cli

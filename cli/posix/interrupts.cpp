#include "cli/console/interrupts.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace media_adapter::cli {
namespace {

constexpr std::array<int, 4> kDeadlySignals = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

// At most a hidden prompt on top of a temporary folder.
std::array<std::atomic<void (*)()>, 4> cleanups;
std::atomic<size_t> cleanupCount;
std::atomic<int> watchCount;
std::atomic<int> notedSignal;  // 0: none
std::atomic<const char*> firstNotice;
std::atomic<const char*> partingWords;

static_assert(decltype(cleanups)::value_type::is_always_lock_free && decltype(notedSignal)::is_always_lock_free &&
              decltype(partingWords)::is_always_lock_free);

void SetHandler(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

void Say(const char* text) {
  if (text == nullptr) return;
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, strlen(text));
}

void OnSignal(int signal) {
  int none = 0;
  if (watchCount > 0 && signal != SIGPIPE && notedSignal.compare_exchange_strong(none, signal)) {
    const int error = errno;  // of what was interrupted
    Say(firstNotice);
    errno = error;
    return;
  }
  for (size_t i = cleanupCount.exchange(0); i-- > 0;) cleanups[i].load()();
  Say(partingWords);
  SetHandler(signal, SIG_DFL);
  raise(signal);
}

bool IsIgnored(int signal) {
  struct sigaction action = {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

// From the first need on the handler stays: without a watch or a cleanup it does what the system would.
void HandleSignals() {
  for (const int signal : kDeadlySignals) {
    if (!IsIgnored(signal)) SetHandler(signal, OnSignal);
  }
}

}  // namespace

CleanupOnSignal::CleanupOnSignal(void (*cleanup)()) {
  cleanups[cleanupCount] = cleanup;
  ++cleanupCount;
  HandleSignals();
}

CleanupOnSignal::~CleanupOnSignal() { --cleanupCount; }

InterruptWatch::InterruptWatch(const char* notice) : before_(firstNotice) {
  if (before_ == nullptr) firstNotice = notice;
  ++watchCount;
  HandleSignals();
}

InterruptWatch::~InterruptWatch() {
  --watchCount;
  firstNotice = before_;
}

bool IsInterrupted() { return notedSignal != 0; }

void ForgetInterrupt() { notedSignal = 0; }

void EndIfInterrupted() {
  if (notedSignal == 0) return;
  SetHandler(notedSignal, SIG_DFL);
  raise(notedSignal);
}

PartingWords::PartingWords(std::string text) : text_(std::move(text)) { partingWords = text_.c_str(); }

PartingWords::~PartingWords() { partingWords = nullptr; }

}  // namespace media_adapter::cli

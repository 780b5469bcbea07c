#include "cli/console/progress_bar.h"

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "cli/console/terminal.h"
#include "cli/console/text.h"

namespace media_adapter::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto kRedrawInterval = 100ms;

double SecondsSince(ProgressBar::Clock::time_point start) {
  return std::chrono::duration<double>(ProgressBar::Clock::now() - start).count();
}

}  // namespace

ProgressBar::ProgressBar(std::string label, const TransferState& state, Clock::time_point start, uint32_t* progress)
    : label_(std::move(label)), state_(state), start_(start), progress_(progress) {
  if (!IsErrorTerminal()) return;
  thread_ = std::jthread([this](const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
      Draw();
      wake_.wait_for(lock, stop, kRedrawInterval, [] { return false; });
    }
    Print(stderr, "\r\033[K");
  });
}

ProgressBar::~ProgressBar() = default;

void ProgressBar::Draw() const {
  TransferState state = state_;
  state.seconds = SecondsSince(start_);
  state.fileSeconds = SecondsSince(fileStart_);
  if (progress_ != nullptr) {
    state.percent = std::min(std::atomic_ref(*progress_).load(std::memory_order_relaxed), 100U);
  }
  const std::string text = ProgressText(state);
  const size_t columns = TerminalColumns();
  const size_t room = columns - std::min(columns, text.size() + 1);
  const std::string line = "\r\033[K" + Shorten(Shorten(NumberText(state) + label_, room) + text, columns - 1);
  Print(stderr, line);
}

}  // namespace media_adapter::cli

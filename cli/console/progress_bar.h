// The line that shows how far a transfer has come, on a terminal's standard error only. A thread of its own draws it
// while the library's call blocks the caller.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "cli/console/progress_text.h"

namespace media_adapter::cli {

class ProgressBar {
 public:
  using Clock = std::chrono::steady_clock;

  // label: escaped name; state: of the whole transfer, which began at `start`. progress: percent of this file as the
  // library's worker writes it, or null when there is none. Must outlive the bar.
  explicit ProgressBar(std::string label, const TransferState& state = {}, Clock::time_point start = Clock::now(),
                       uint32_t* progress = nullptr);
  // Removes the line.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

 private:
  void Draw() const;

  const std::string label_;
  const TransferState state_;
  const Clock::time_point start_;
  const Clock::time_point fileStart_ = Clock::now();
  uint32_t* const progress_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;
};

}  // namespace media_adapter::cli

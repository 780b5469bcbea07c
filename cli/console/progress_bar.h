// The line that shows how far a transfer has come, on a terminal's standard error only. A thread of its own draws it
// while the library's call blocks the caller.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace media_adapter::cli {

// 1536 as "1.5 KB".
std::string SizeText(uint64_t bytes);

class ProgressBar {
 public:
  // label: escaped name; size: bytes of the whole, 0 when unknown. progress: percent as the library's worker writes it,
  // or null when there is none: then the seconds gone by are shown. Must outlive the bar.
  ProgressBar(std::string label, uint64_t size, uint32_t* progress);
  // Removes the line.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

 private:
  void Draw() const;

  const std::string label_;
  const uint64_t size_;
  uint32_t* const progress_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;
};

}  // namespace media_adapter::cli

#include "cli/console/progress_bar.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <string_view>

#include "cli/console/terminal.h"
#include "cli/console/text.h"

namespace media_adapter::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto kRedrawInterval = 100ms;
constexpr size_t kBarColumns = 30;

// The first `columns` characters, so that the line never wraps.
std::string Shorten(std::string_view text, size_t columns) {
  size_t end = 0;
  for (size_t count = 0; end < text.size(); ++end) {
    if ((text[end] & 0xC0) != 0x80 && ++count > columns) break;
  }
  return std::string(text.substr(0, end));
}

}  // namespace

std::string SizeText(uint64_t bytes) {
  constexpr std::array<const char*, 4> kUnits = {"bytes", "KB", "MB", "GB"};
  if (bytes < 1024) return std::to_string(bytes) + " " + kUnits[0];
  auto value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
  return text.data();
}

ProgressBar::ProgressBar(std::string label, uint64_t size, uint32_t* progress)
    : label_(std::move(label)), size_(size), progress_(progress) {
  if (!IsErrorTerminal()) return;
  thread_ = std::jthread([this](const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
      Draw();
      wake_.wait_for(lock, stop, kRedrawInterval, [] { return false; });
    }
    std::fputs("\r\033[K", stderr);
  });
}

ProgressBar::~ProgressBar() = default;

void ProgressBar::Draw() const {
  std::string state;
  if (progress_ != nullptr) {
    const uint32_t percent = std::min(std::atomic_ref(*progress_).load(std::memory_order_relaxed), 100u);
    const size_t filled = kBarColumns * percent / 100;
    state = "  [" + std::string(filled, '#') + std::string(kBarColumns - filled, ' ') + "] " + std::to_string(percent) +
            "%";
    if (size_ > 0) state += " of " + SizeText(size_);
  } else {
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    if (size_ > 0) state = "  " + SizeText(size_);
    state += "  " + std::to_string(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()) + " s";
  }
  const size_t room = TerminalColumns() - std::min(TerminalColumns(), state.size() + 1);
  const std::string line = "\r\033[K" + Shorten(label_, room) + state;
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace media_adapter::cli

#include "cli/console/progress_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "cli/local/local_name.h"

namespace media_adapter::cli {
namespace {

constexpr size_t kBarColumns = 30;

std::string Bar(uint32_t percent) {
  const size_t filled = kBarColumns * percent / 100;
  return "[" + std::string(filled, '#') + std::string(kBarColumns - filled, ' ') + "] ";
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

std::string TimeText(double seconds) {
  const auto whole = static_cast<uint64_t>(seconds);
  std::array<char, 48> text = {};
  if (whole >= 3600) {
    std::snprintf(text.data(), text.size(), "%u:%02u:%02u", static_cast<unsigned>(whole / 3600),
                  static_cast<unsigned>(whole / 60 % 60), static_cast<unsigned>(whole % 60));
  } else {
    std::snprintf(text.data(), text.size(), "%u:%02u", static_cast<unsigned>(whole / 60),
                  static_cast<unsigned>(whole % 60));
  }
  return text.data();
}

std::string RateText(uint64_t bytes, double seconds) {
  constexpr double kShortest = 0.5;  // what is measured in less changes too much to be read
  if (bytes == 0 || seconds < kShortest) return {};
  return SizeText(static_cast<uint64_t>(static_cast<double>(bytes) / seconds)) + "/s";
}

std::string NumberText(const TransferState& state) {
  if (state.fileCount < 2) return {};
  return std::to_string(state.fileNumber) + "/" + std::to_string(state.fileCount) + " ";
}

std::string ProgressText(const TransferState& state) {
  std::string text;
  uint64_t bytes = state.bytesDone;
  double seconds = state.seconds;
  if (state.percent) {
    bytes += state.fileSize * *state.percent / 100;
    text = "  " + Bar(*state.percent) + std::to_string(*state.percent) + "%";
    if (state.fileSize > 0) text += " of " + SizeText(state.fileSize);
  } else if (state.fileCount > 0) {
    seconds -= state.fileSeconds;
    text = "  " + SizeText(state.fileSize);
  }
  if (!state.percent && state.fileCount > 1 && state.bytesTotal > 0) {
    const uint64_t percent = bytes * 100 / state.bytesTotal;
    text += "  " + std::to_string(percent) + "% of " + SizeText(state.bytesTotal) + " done";
  }
  if (const std::string rate = RateText(bytes, seconds); !rate.empty()) {
    const auto rest = static_cast<double>(std::max(state.bytesTotal, bytes) - bytes);
    const double left = rest * seconds / static_cast<double>(bytes) - (state.percent ? 0 : state.fileSeconds);
    text += "  " + rate + (left > 0 ? "  " + TimeText(left) + " left" : "");
  }
  return state.percent ? text : text + "  " + TimeText(state.seconds);
}

std::string Plot(std::span<const uint32_t> values, size_t columns) {
  values = values.last(std::min(columns, values.size()));
  if (values.empty()) return {};
  // Where texts are in a code page there are no blocks.
  constexpr std::array<const char*, 8> kBlocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  constexpr std::array<const char*, 8> kSigns = {"_", ".", "-", "=", "+", "*", "%", "#"};
  const auto& heights = kIsDosHost ? kSigns : kBlocks;
  const uint64_t largest = std::max(std::ranges::max(values), 1U);
  std::string plot;
  for (const uint64_t value : values) plot += heights[static_cast<size_t>(value * (heights.size() - 1) / largest)];
  return plot;
}

}  // namespace media_adapter::cli

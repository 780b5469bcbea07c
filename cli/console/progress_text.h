// What is told of a transfer while it goes on, as text: only what is known. The library tells how far a file from a
// device has come, and nothing of one on its way to a device, where only files that have arrived count.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace media_adapter::cli {

// 1536 as "1.5 KB".
std::string SizeText(uint64_t bytes);
// 62 as "1:02".
std::string TimeText(double seconds);
// "1.5 KB/s", or "" when there is nothing to tell yet.
std::string RateText(uint64_t bytes, double seconds);

struct TransferState {
  size_t fileNumber = 0;   // of the running one
  size_t fileCount = 0;    // 0: no file is copied, only time goes by
  uint64_t bytesDone = 0;  // of the files that have arrived
  uint64_t bytesTotal = 0;
  uint64_t fileSize = 0;
  std::optional<uint32_t> percent{};  // of the running file; none when nobody tells
  double seconds = 0;                 // since the first file was begun
  double fileSeconds = 0;             // since the running one was
};

// "3/12 " in front of a file's name, or "".
std::string NumberText(const TransferState& state);
// What stands behind its name: percent, rate, time left.
std::string ProgressText(const TransferState& state);

// The last `columns` values as blocks of eight heights, from 0 to the largest of them.
std::string Plot(std::span<const uint32_t> values, size_t columns);

}  // namespace media_adapter::cli

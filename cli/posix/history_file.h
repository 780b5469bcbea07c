// The lines of the shell that are kept between runs, in a file that only this user can read, in the folder where
// programs keep their state. Several shells may add to it at the same time.
#pragma once

#include <string>
#include <vector>

namespace media_adapter::cli {

inline constexpr size_t kHistoryLines = 500;

// The last kHistoryLines, oldest first.
std::vector<std::string> ReadHistory();

void AddToHistory(const std::string& line);

}  // namespace media_adapter::cli

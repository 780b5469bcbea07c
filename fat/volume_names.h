// Which names a FAT volume can hold.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace media_adapter {

inline constexpr std::string_view kForbiddenCharacters = "\\/:*?\"<>|";
inline constexpr uint8_t kFirstPrintable = 0x20;

// No control characters, and none of the nine that the FAT format forbids.
inline bool CanHoldName(std::string_view name) {
  return std::ranges::none_of(name, [](char c) {
    return static_cast<uint8_t>(c) < kFirstPrintable || kForbiddenCharacters.find(c) != std::string_view::npos;
  });
}

}  // namespace media_adapter

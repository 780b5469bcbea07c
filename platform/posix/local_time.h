// The conversion that the clock and the local files share.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ctime>

#include "platform/clock.h"

namespace media_adapter::platform {

inline LocalTime ToLocalTime(std::time_t time) {
  std::tm fields{};
  if (localtime_r(&time, &fields) == nullptr) fields.tm_year = time < 0 ? INT_MIN : INT_MAX;  // no year can hold it
  constexpr int64_t kLastYear = UINT16_MAX;
  return {.year = static_cast<uint16_t>(std::clamp<int64_t>(int64_t{fields.tm_year} + 1900, 0, kLastYear)),
          .month = static_cast<uint8_t>(fields.tm_mon + 1),
          .day = static_cast<uint8_t>(fields.tm_mday),
          .hour = static_cast<uint8_t>(fields.tm_hour),
          .minute = static_cast<uint8_t>(fields.tm_min),
          .second = static_cast<uint8_t>(fields.tm_sec)};
}

}  // namespace media_adapter::platform

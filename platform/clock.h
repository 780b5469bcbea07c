// Time as the library sees it: a monotonic clock for deadlines, the local time for directory entries, and sleeping.
// Used by the message queue, the exports' ready wait and entry creation. Nothing else asks the system for the time.
#pragma once

#include <chrono>
#include <cstdint>

namespace media_adapter::platform {

struct LocalTime {
  uint16_t year = 1980;
  uint8_t month = 1;   // 1 to 12
  uint8_t day = 1;     // 1 to 31
  uint8_t hour = 0;    // 0 to 23
  uint8_t minute = 0;  // 0 to 59
  uint8_t second = 0;  // 0 to 60
};

// Time since an arbitrary start; never goes back.
std::chrono::nanoseconds MonotonicNow();

LocalTime CurrentLocalTime();

void Sleep(std::chrono::milliseconds duration);

}  // namespace media_adapter::platform

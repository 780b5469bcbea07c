// The conversion that the clock and the local files share.
#pragma once

#include <ctime>

#include "platform/clock.h"

namespace media_adapter::platform {

inline LocalTime ToLocalTime(std::time_t time) {
  std::tm fields{};
  localtime_r(&time, &fields);
  return {.year = static_cast<uint16_t>(fields.tm_year + 1900),
          .month = static_cast<uint8_t>(fields.tm_mon + 1),
          .day = static_cast<uint8_t>(fields.tm_mday),
          .hour = static_cast<uint8_t>(fields.tm_hour),
          .minute = static_cast<uint8_t>(fields.tm_min),
          .second = static_cast<uint8_t>(fields.tm_sec)};
}

}  // namespace media_adapter::platform

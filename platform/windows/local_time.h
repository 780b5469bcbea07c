// The conversion that the clock and the local files share.
#pragma once

#include "platform/clock.h"
#include "platform/windows/system.h"

namespace media_adapter::platform {

inline LocalTime ToLocalTime(const SYSTEMTIME& time) {
  return {.year = time.wYear,
          .month = static_cast<uint8_t>(time.wMonth),
          .day = static_cast<uint8_t>(time.wDay),
          .hour = static_cast<uint8_t>(time.wHour),
          .minute = static_cast<uint8_t>(time.wMinute),
          .second = static_cast<uint8_t>(time.wSecond)};
}

}  // namespace media_adapter::platform

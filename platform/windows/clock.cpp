#include "platform/clock.h"

#include "platform/windows/local_time.h"

namespace media_adapter::platform {

std::chrono::nanoseconds MonotonicNow() { return std::chrono::steady_clock::now().time_since_epoch(); }

LocalTime CurrentLocalTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return ToLocalTime(now);
}

void Sleep(std::chrono::milliseconds duration) { ::Sleep(static_cast<DWORD>(duration.count())); }

}  // namespace media_adapter::platform

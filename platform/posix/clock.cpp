#include "platform/clock.h"

#include <ctime>
#include <thread>

#include "platform/posix/local_time.h"

namespace media_adapter::platform {

// Asked once an exchange: the C++ library's clock would be one more page that the processor has forgotten meanwhile.
[[gnu::hot]] std::chrono::nanoseconds MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

LocalTime CurrentLocalTime() { return ToLocalTime(std::time(nullptr)); }

void Sleep(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace media_adapter::platform

#include "platform/clock.h"

#include <ctime>
#include <thread>

#include "platform/posix/local_time.h"

namespace media_adapter::platform {

std::chrono::nanoseconds MonotonicNow() { return std::chrono::steady_clock::now().time_since_epoch(); }

LocalTime CurrentLocalTime() { return ToLocalTime(std::time(nullptr)); }

void Sleep(std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); }

}  // namespace media_adapter::platform

#include "platform/clock.h"

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

std::chrono::nanoseconds MonotonicNow() { return sim::SimWorld::Current().Now(); }

LocalTime CurrentLocalTime() { return sim::SimWorld::Current().localTime; }

void Sleep(std::chrono::milliseconds duration) { sim::SimWorld::Current().Advance(duration); }

}  // namespace media_adapter::platform

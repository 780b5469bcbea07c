#include "platform/notices.h"

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

void ShowError(const char* text) {
  auto& world = sim::SimWorld::Current();
  world.Do([&] { world.errors.emplace_back(text); });
}

void TraceLine(const char* text) {
  auto& world = sim::SimWorld::Current();
  world.Do([&] { world.traces.emplace_back(text); });
}

uint32_t LastSystemError() { return sim::SimWorld::Current().lastSystemError; }

}  // namespace media_adapter::platform

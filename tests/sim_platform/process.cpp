#include "platform/process.h"

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

uint32_t ProcessId() { return sim::SimWorld::Current().processId; }

}  // namespace media_adapter::platform

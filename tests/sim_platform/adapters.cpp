#include "platform/adapters.h"

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

MacAddress FirstAdapterAddress() { return sim::SimWorld::Current().adapter; }

}  // namespace media_adapter::platform

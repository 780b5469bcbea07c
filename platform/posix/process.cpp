#include "platform/process.h"

#include <unistd.h>

namespace media_adapter::platform {

uint32_t ProcessId() { return static_cast<uint32_t>(getpid()); }

}  // namespace media_adapter::platform

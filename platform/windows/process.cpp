#include "platform/process.h"

#include "platform/windows/system.h"

namespace media_adapter::platform {

uint32_t ProcessId() { return GetCurrentProcessId(); }

}  // namespace media_adapter::platform

// Which process this is. The library asks it of itself: a forked child has the library's memory, but no worker thread.
#pragma once

#include <cstdint>

namespace media_adapter::platform {

// Never 0.
uint32_t ProcessId();

}  // namespace media_adapter::platform

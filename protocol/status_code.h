// The result of every operation below the exports: 0, or one of the MEDIA_ADAPTER_... values of the public header, or a
// status of the device that the header does not name. The first failing step's status is passed up unchanged.
#pragma once

#include <cstdint>

#include "api/media_adapter.h"

namespace media_adapter {

using StatusCode = uint32_t;

}  // namespace media_adapter

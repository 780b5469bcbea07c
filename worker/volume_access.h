// What every file request does before its operation: check its arguments, open access to the device, take sector
// buffers and mount the volume.
#pragma once

#include "api/request_record.h"
#include "protocol/status_code.h"

namespace media_adapter {

// The checks of every device request: 255 (no such device), 254 (password too long), or 0.
StatusCode CheckDeviceArguments(const RequestRecord& record);

// Returns 0 with the session's values stored, buffers allocated and the device's volume mounted; 255, 254, 243 (a path
// is missing, empty or too long), 250 (sector size), 249 (no memory), 245 to 248 (mount), or the status of an exchange.
// After a failure no operation may run; buffers that are allocated stay until the next file request.
StatusCode PrepareVolumeAccess(const RequestRecord& record);

}  // namespace media_adapter

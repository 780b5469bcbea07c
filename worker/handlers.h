// The handlers of the requests: each runs its operation and fills its result block.
#pragma once

#include "api/request_record.h"

namespace media_adapter {

// Runs the request to its end. Its result is written when this returns.
void HandleRequest(RequestRecord& record);

}  // namespace media_adapter

// The handlers of the requests: each runs its operation and fills its result block.
#pragma once

#include "api/request_record.h"

namespace media_adapter {

// Runs the request to its end. Its result is written when this returns: 249 (a search: no devices; a change of the
// interface: 11) when there was no memory for it.
void HandleRequest(RequestRecord& record);

}  // namespace media_adapter

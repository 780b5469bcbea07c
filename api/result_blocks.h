// The result records that the exports return by address: one static instance of each, as long as the library lives.
// The worker fills them, an export that gives up marks its own; both under ResultMutex().
#pragma once

#include <mutex>

#include "api/media_adapter.h"
#include "platform/mutex.h"

namespace media_adapter {

extern SearchResult searchResult;
extern ConfigurationResult configurationResult;
extern StatusResult statusResult;
extern ReadDataResult readDataResult;
extern TestResult testResult;
extern uint32_t interfaceStatus;

platform::Mutex& ResultMutex();

// All records back to zero. Only while no export runs.
void ResetResultBlocks();

}  // namespace media_adapter

// The one way of every export to the worker: wait until it is ready, enter the library lock, post, wait for the
// completion, or give up. Also how the library, when it is unloaded, ends the calls that are still inside.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "api/request_record.h"

namespace media_adapter {

// Runs the request on the worker. `prepare` runs under the library lock before the request is posted. `finish` runs
// under the library lock and the result mutex when it has completed, or (completed false) when the worker did not
// finish within 60 seconds or is stopping.
void PassGate(const std::shared_ptr<RequestRecord>& record, const std::function<void()>& prepare,
              const std::function<void(bool completed)>& finish);

// For the worker. SetWorkerReady: the exports may post. CompleteRequest: its result is written, its caller may go on.
void SetWorkerReady(bool isReady);
void CompleteRequest(RequestRecord& record);
// Takes a posted request over. False when its caller has gone.
bool BeginRequest(RequestRecord& record);

// Makes the gate usable. False when there is no completion event; every export then gives up at once.
bool OpenGate();
// Ends every call that waits, and every call that comes, with giving up; then waits until all callers have left, at
// most `timeout`.
void CloseGate(std::chrono::milliseconds timeout);

}  // namespace media_adapter

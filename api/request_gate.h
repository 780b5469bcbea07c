// The one way of every export to the worker: wait until it is ready, enter the library lock, fill the record, post it,
// wait for the completion, or give up. Also how the library, when it is unloaded, ends the calls that are still inside.
// Nothing here throws.
#pragma once

#include <chrono>
#include <functional>

#include "api/request_record.h"

namespace media_adapter {

using FillRecord = std::function<void(RequestRecord&)>;
using FinishCall = std::function<void(bool completed)>;

// Runs a request on the worker. `fill` copies the caller's arguments under the library lock, in the caller's own turn:
// it sees the texts as the caller before it left them. `finish` runs under the library lock and the result mutex when
// the request has completed, or (completed false) when the worker did not finish within 60 seconds or is stopping, or
// there was no memory. In a forked child it runs at once, under no lock.
void PassGate(RequestId id, const FillRecord& fill, const FinishCall& finish);

// For the worker. SetWorkerReady: the exports may post. CompleteRequest: its result is written, its caller may go on.
void SetWorkerReady(bool isReady);
void CompleteRequest(RequestRecord& record);
// Takes a posted request over. False when its caller has gone.
bool BeginRequest(RequestRecord& record);

// True unless this process opened the gate. Another one that has the library's memory has no worker, and its locks stay
// as they were when it was forked.
bool InForkedChild();

// Makes the gate usable for this process. False when there is no completion event; every export then gives up at once.
bool OpenGate();
// Ends every call that waits, and every call that comes, with giving up; then waits until all callers have left, at
// most `timeout`, and have had the time for their return. False when a caller is still inside.
bool CloseGate(std::chrono::milliseconds timeout);
// Frees what the closed gate holds. Only when no caller and no worker is left.
void FreeGate();

}  // namespace media_adapter

// One request and its reply: sending, the retransmission timers, and the wait in which the worker's queue is pumped.
// The senders of requests.h and sector_access.h run on it; reception ends its waits.
//
// A request is sent at most four times. Its timer's intervals are a table in exchange.cpp; without a reply it ends with
// MEDIA_ADAPTER_NO_RESPONSE after 6000 ms (settings, search), 7500 ms (disconnect), 13000 ms (sectors, start of a
// transfer) or 19500 ms (connect).
//
// What every exchange runs, here and in the files below, is marked hot, so that it lies together in the library, and
// what few of them run is marked cold: while a slow device takes its time the processor forgets code, and reading it
// anew costs more than running it.
#pragma once

#include <cstdint>

#include "platform/message_queue.h"
#include "protocol/protocol_state.h"
#include "protocol/session.h"

namespace media_adapter {

// Sends the request whose body of `bodySize` bytes is in place and waits for its end. Returns the reply's status, or
// MEDIA_ADAPTER_NO_RESPONSE. operation: not Search, not Transfer.
StatusCode RunRequest(Operation operation, size_t bodySize, const SessionValues& session);

// Broadcasts a search, four times in 6000 ms, while reception fills the device table.
void RunSearch();

// Waits for the next data packet of the running transfer, or the end of its timer's patience.
void WaitForPacket();

// Sends the built request to the device, or to every host. A failure leaves a trace line with `label` and nothing
// else; the timers recover it like a lost datagram.
void SendToDevice(const char* label);
void SendToAll(const char* label);

// A timer's tick, which resends the built request or gives up; or a datagram. Not a request.
void HandleMessage(const platform::Message& message);

void KillTimer(Operation operation);

// Takes one message from the worker's queue. Requests stay queued; the quit message ends every wait.
void PumpOneMessage();

}  // namespace media_adapter

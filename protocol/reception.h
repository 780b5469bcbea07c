// The receive notification: one datagram is read, held against what is awaited, and taken or dropped. Whatever does not
// match is dropped without a trace and without changing anything; the retransmission timers cover the loss.
#pragma once

#include "platform/datagram_socket.h"

namespace media_adapter {

// Reads one datagram from the worker's socket. Runs for each notification, inside and outside a request's wait.
void OnReceive(platform::DatagramSocket::Patience patience = {});

}  // namespace media_adapter

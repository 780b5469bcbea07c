// The worker thread: it owns the socket, the timers and all protocol and file-system state, and runs every request.
#pragma once

namespace media_adapter {

// The thread's entry: takes the host's hardware address, opens the socket, lets the exports in, and takes messages
// until the quit message.
void WorkerMain();

}  // namespace media_adapter

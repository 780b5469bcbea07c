// The worker's queue and socket: the only way in and out of the worker thread. The exports post into the queue; all
// else is the worker's own.
#pragma once

#include "platform/datagram_socket.h"
#include "platform/message_queue.h"

namespace media_adapter {

struct Channel {
  platform::MessageQueue queue;
  platform::DatagramSocket deviceSocket;
};

// The one channel, from OpenChannel to CloseChannel. Opening it throws std::bad_alloc when there is no memory for it.
bool HasChannel();
Channel& WorkerChannel();
void OpenChannel();
void CloseChannel();

}  // namespace media_adapter

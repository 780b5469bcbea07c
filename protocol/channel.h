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

// The one channel, from OpenChannel to CloseChannel.
Channel& WorkerChannel();
void OpenChannel();
void CloseChannel();
// Gives the channel up without freeing it: a worker that could not be stopped still uses it.
void AbandonChannel();

}  // namespace media_adapter

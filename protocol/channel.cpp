#include "protocol/channel.h"

#include <utility>

namespace media_adapter {
namespace {

// Not freed by the end of the process: a worker that cannot be stopped may still use it.
Channel* channel = nullptr;

}  // namespace

bool HasChannel() { return channel != nullptr; }

[[gnu::hot]] Channel& WorkerChannel() { return *channel; }

void OpenChannel() { channel = new Channel; }

void CloseChannel() { delete std::exchange(channel, nullptr); }

}  // namespace media_adapter

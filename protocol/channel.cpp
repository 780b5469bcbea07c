#include "protocol/channel.h"

#include <memory>
#include <new>

namespace media_adapter {
namespace {

// Not destroyed by the end of the process: a worker that cannot be stopped may still use it.
alignas(Channel) std::byte memory[sizeof(Channel)];
Channel* channel = nullptr;

}  // namespace

bool HasChannel() { return channel != nullptr; }

[[gnu::hot]] Channel& WorkerChannel() { return *channel; }

void OpenChannel() { channel = new (memory) Channel; }

void CloseChannel() {
  if (channel != nullptr) std::destroy_at(channel);
  channel = nullptr;
}

}  // namespace media_adapter

#include "protocol/channel.h"

#include <memory>

namespace media_adapter {
namespace {

// Made on first use, so that it outlives the object whose destruction stops the library.
std::unique_ptr<Channel>& Holder() {
  static std::unique_ptr<Channel> channel;
  return channel;
}

}  // namespace

Channel& WorkerChannel() { return *Holder(); }

void OpenChannel() { Holder() = std::make_unique<Channel>(); }

void CloseChannel() { Holder().reset(); }

void AbandonChannel() { [[maybe_unused]] Channel* const left = Holder().release(); }

}  // namespace media_adapter

#include "worker/library.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <memory>

#include "api/request_gate.h"
#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "platform/adapters.h"
#include "platform/load_hook.h"
#include "platform/notices.h"
#include "platform/thread.h"
#include "protocol/channel.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"
#include "worker/device_socket_setup.h"
#include "worker/worker_thread.h"

namespace media_adapter {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuitTimeout{100};
constexpr milliseconds kLeaveTimeout{1000};

// Made on first use, so that it outlives the object whose destruction stops the library.
std::unique_ptr<platform::Thread>& WorkerHandle() {
  static std::unique_ptr<platform::Thread> handle;
  return handle;
}

void StartWorker() {
  SetWorkerReady(false);
  OpenChannel();
  WorkerHandle() = std::make_unique<platform::Thread>();
  if (!WorkerHandle()->Start(WorkerMain)) ShowSystemError("CreateThreadSocket");
}

// True once the worker has ended; a worker that does not end keeps what it uses.
bool StopWorker() {
  WorkerChannel().queue.PostQuit();
  const bool ended = WorkerHandle()->Wait(kQuitTimeout) || WorkerHandle()->StopByForce();
  SetWorkerReady(false);
  return ended;
}

}  // namespace

bool StartLibrary() {
  ResetResultBlocks();
  ResetPackets(platform::FirstAdapterAddress());
  ResetProtocol();
  ResetVolume();
  FreeSectorBuffers();
  StartWorker();
  if (!OpenGate()) ShowSystemError("CreateEvent");
  return true;
}

void StopLibrary() {
  const bool ended = StopWorker();
  CloseGate(kLeaveTimeout);
  if (!ended) {
    AbandonChannel();
    return;
  }
  FreeSectorBuffers();
  CloseChannel();
  WorkerHandle().reset();
}

void platform::OnLibraryLoaded() { StartLibrary(); }
void platform::OnLibraryUnloaded() { StopLibrary(); }

}  // namespace media_adapter

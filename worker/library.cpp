#include "worker/library.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <new>
#include <utility>

#include "api/request_gate.h"
#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "platform/load_hook.h"
#include "platform/notices.h"
#include "platform/thread.h"
#include "protocol/channel.h"
#include "protocol/protocol_state.h"
#include "worker/device_socket_setup.h"
#include "worker/worker_thread.h"

namespace media_adapter {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kQuitTimeout{100};
constexpr milliseconds kLeaveTimeout{1000};

// Not freed by the end of the process, which may be that of a forked child.
platform::Thread* worker = nullptr;

// False when there is no thread, or no memory for what it needs.
bool StartWorker() {
  SetWorkerReady(false);
  try {
    OpenChannel();
    worker = new platform::Thread;
    return worker->Start(WorkerMain);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// True once the worker has ended.
bool StopWorker() {
  if (worker == nullptr) return true;
  WorkerChannel().queue.PostQuit();
  return worker->Wait(kQuitTimeout) || worker->StopByForce();
}

}  // namespace

bool StartLibrary() {
  ResetResultBlocks();
  ResetProtocol();
  ResetVolume();
  FreeSectorBuffers();
  if (!StartWorker()) {
    ShowSystemError("CreateThreadSocket");
    platform::AllowUnloading([] { return true; });
  }
  if (!OpenGate()) ShowSystemError("CreateEvent");
  return true;
}

void StopLibrary() {
  if (InForkedChild()) return;
  const bool workerEnded = StopWorker();
  const bool callersLeft = CloseGate(kLeaveTimeout);
  if (!workerEnded || !callersLeft) return;  // they keep what they use
  FreeSectorBuffers();
  FreeGate();
  CloseChannel();
  delete std::exchange(worker, nullptr);
}

void platform::OnLibraryLoaded() { StartLibrary(); }
void platform::OnLibraryUnloaded() { StopLibrary(); }

}  // namespace media_adapter

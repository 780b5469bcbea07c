#include "api/request_gate.h"

#include <atomic>
#include <mutex>
#include <optional>

#include "api/result_blocks.h"
#include "platform/clock.h"
#include "platform/event.h"

namespace media_adapter {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kReadyStep{50};
constexpr int kReadySteps = 199;
constexpr milliseconds kCompletionTimeout{60000};
constexpr milliseconds kLeaveStep{1};
constexpr milliseconds kReturnTime{20};  // for a caller that has only its return left

struct Gate {
  std::mutex libraryLock;  // one request at a time
  std::optional<platform::Event> completionEvent;
  std::atomic<bool> workerReady{false};
  std::atomic<bool> stopping{false};
  std::atomic<int> callers{0};
};

// Made on first use, so that it outlives the object whose destruction stops the library.
Gate& TheGate() {
  static Gate gate;
  return gate;
}

// Counts the calls that are inside the library.
class CallerCount {
 public:
  CallerCount() { ++TheGate().callers; }
  ~CallerCount() { --TheGate().callers; }
  CallerCount(const CallerCount&) = delete;
  CallerCount& operator=(const CallerCount&) = delete;
};

void WaitForWorkerReady() {
  const Gate& gate = TheGate();
  for (int step = 0; step < kReadySteps && !gate.workerReady && !gate.stopping; ++step) platform::Sleep(kReadyStep);
}

bool IsDone(const RequestRecord& record) {
  std::lock_guard lock(ResultMutex());
  return record.state == RequestState::Done;
}

// The event wakes the waiter; the record says whether it is this request that has ended.
void WaitForCompletion(const RequestRecord& record) {
  Gate& gate = TheGate();
  const auto deadline = platform::MonotonicNow() + kCompletionTimeout;
  while (!IsDone(record) && !gate.stopping) {
    const auto rest = std::chrono::ceil<milliseconds>(deadline - platform::MonotonicNow());
    if (rest <= milliseconds(0) || !gate.completionEvent->Wait(rest)) return;
  }
}

}  // namespace

void PassGate(const std::shared_ptr<RequestRecord>& record, const std::function<void()>& prepare,
              const std::function<void(bool completed)>& finish) {
  const CallerCount inside;
  WaitForWorkerReady();

  Gate& gate = TheGate();
  std::lock_guard libraryLock(gate.libraryLock);
  prepare();
  if (!gate.stopping) {
    PostRequest(record);
    WaitForCompletion(*record);
  }

  std::lock_guard resultLock(ResultMutex());
  if (record->state == RequestState::Posted) record->state = RequestState::Withdrawn;
  finish(record->state == RequestState::Done);
}

void SetWorkerReady(bool isReady) { TheGate().workerReady = isReady; }

bool BeginRequest(RequestRecord& record) {
  std::lock_guard lock(ResultMutex());
  if (record.state == RequestState::Withdrawn) return false;
  record.state = RequestState::Running;
  return true;
}

void CompleteRequest(RequestRecord& record) {
  {
    std::lock_guard lock(ResultMutex());
    record.state = RequestState::Done;
  }
  TheGate().completionEvent->Set();
}

bool OpenGate() {
  Gate& gate = TheGate();
  gate.stopping = false;
  gate.completionEvent.emplace();
  return gate.completionEvent->IsValid();
}

void CloseGate(milliseconds timeout) {
  Gate& gate = TheGate();
  gate.stopping = true;
  gate.completionEvent->Set();
  const bool hadCallers = gate.callers != 0;
  const auto deadline = platform::MonotonicNow() + timeout;
  while (gate.callers != 0 && platform::MonotonicNow() < deadline) platform::Sleep(kLeaveStep);
  if (hadCallers) platform::Sleep(kReturnTime);
}

}  // namespace media_adapter

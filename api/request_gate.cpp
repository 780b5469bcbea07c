#include "api/request_gate.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#include "api/result_blocks.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/mutex.h"
#include "platform/process.h"

namespace media_adapter {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds kReadyStep{50};
constexpr int kReadySteps = 199;
constexpr milliseconds kCompletionTimeout{60000};
constexpr milliseconds kLeaveStep{1};
constexpr milliseconds kReturnTime{20};  // for a caller that has only its return left

// What callers wait at.
struct Door {
  platform::Mutex libraryLock;  // one request at a time
  platform::Event completionEvent;
};

struct Gate {
  Door* door = nullptr;  // from OpenGate to FreeGate
  uint32_t process{};    // that opened the gate
  std::atomic<bool> workerReady{};
  std::atomic<bool> stopping{true};
  std::atomic<int> callers{0};
  std::atomic<nanoseconds> lastLeft{};  // when the last caller had only its return left
};

// At the end of the process a caller or a stuck worker may still be inside, and in a forked child their locks are held
// for ever.
static_assert(std::is_trivially_destructible_v<Gate>);
constinit Gate gate;

// Counts the calls that are inside the library.
class CallerCount {
 public:
  CallerCount() { ++gate.callers; }
  ~CallerCount() {
    gate.lastLeft = platform::MonotonicNow();
    --gate.callers;
  }
  CallerCount(const CallerCount&) = delete;
  CallerCount& operator=(const CallerCount&) = delete;
};

void WaitForWorkerReady() {
  for (int step = 0; step < kReadySteps && !gate.workerReady && !gate.stopping; ++step) platform::Sleep(kReadyStep);
}

// Posts the request. Null when there is no memory for it.
std::shared_ptr<RequestRecord> Post(RequestId id, const FillRecord& fill) {
  try {
    auto record = std::make_shared<RequestRecord>();
    record->id = id;
    fill(*record);
    if (!gate.stopping) PostRequest(record);
    return record;
  } catch (const std::exception&) {
    return nullptr;
  }
}

bool IsDone(const RequestRecord& record) {
  std::lock_guard lock(ResultMutex());
  return record.state == RequestState::Done;
}

// The event wakes the waiter; the record says whether it is this request that has ended.
void WaitForCompletion(const RequestRecord& record) {
  const auto deadline = platform::MonotonicNow() + kCompletionTimeout;
  while (!IsDone(record) && !gate.stopping) {
    const auto rest = std::chrono::ceil<milliseconds>(deadline - platform::MonotonicNow());
    if (rest <= milliseconds(0) || !gate.door->completionEvent.Wait(rest)) return;
  }
}

// Under the result mutex. True when the request has completed; otherwise it does not begin any more.
bool EndRequest(RequestRecord& record) {
  if (record.trimsCallerText) *record.callerSeparator = '\0';
  if (record.state == RequestState::Done) return true;
  record.state = RequestState::Withdrawn;
  return false;
}

}  // namespace

void PassGate(RequestId id, const FillRecord& fill, const FinishCall& finish) {
  if (InForkedChild() || gate.door == nullptr) return finish(false);
  const CallerCount inside;
  WaitForWorkerReady();

  std::lock_guard libraryLock(gate.door->libraryLock);
  const auto record = Post(id, fill);
  if (record) WaitForCompletion(*record);

  std::lock_guard resultLock(ResultMutex());
  finish(record && EndRequest(*record));
}

void SetWorkerReady(bool isReady) { gate.workerReady = isReady; }

bool BeginRequest(RequestRecord& record) {
  std::lock_guard lock(ResultMutex());
  return record.state != RequestState::Withdrawn;
}

void CompleteRequest(RequestRecord& record) {
  {
    std::lock_guard lock(ResultMutex());
    record.state = RequestState::Done;
  }
  gate.door->completionEvent.Set();
}

bool InForkedChild() { return gate.process != platform::ProcessId(); }

bool OpenGate() {
  gate.process = platform::ProcessId();
  gate.door = new (std::nothrow) Door;
  gate.stopping = gate.door == nullptr || !gate.door->completionEvent.IsValid();
  return !gate.stopping;
}

bool CloseGate(milliseconds timeout) {
  gate.stopping = true;
  if (gate.door != nullptr) gate.door->completionEvent.Set();
  const auto deadline = platform::MonotonicNow() + timeout;
  while (gate.callers != 0 && platform::MonotonicNow() < deadline) platform::Sleep(kLeaveStep);
  const auto rest = std::chrono::ceil<milliseconds>(gate.lastLeft.load() + kReturnTime - platform::MonotonicNow());
  if (rest > milliseconds(0)) platform::Sleep(rest);
  return gate.callers == 0;
}

void FreeGate() { delete std::exchange(gate.door, nullptr); }

}  // namespace media_adapter

#include "platform/waiter.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "platform/clock.h"
#include "platform/windows/system.h"

namespace media_adapter::platform {
namespace {

// Rounded up, so that a wait does not end before its deadline and begin again.
DWORD MillisecondsUntil(std::chrono::nanoseconds deadline) {
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(deadline - MonotonicNow()).count();
  return static_cast<DWORD>(std::clamp<int64_t>(rest, 0, INFINITE - 1));
}

bool HasArrival(SOCKET socket) {
  if (socket == INVALID_SOCKET) return false;
  fd_set readable{.fd_count = 1, .fd_array = {socket}};
  timeval noTime{};
  return select(0, &readable, nullptr, nullptr, &noTime) == 1;
}

}  // namespace

struct Waiter::Impl {
  Impl() { sockets.reserve(1), found.reserve(1); }  // who watches one has the memory for it already

  // Looks at all, so that each has its turn.
  bool LookForArrivals() {
    std::transform(sockets.begin(), sockets.end(), found.begin(), HasArrival);
    return std::ranges::find(found, true) != found.end();
  }

  HANDLE wakeUp = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  HANDLE arrival = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::vector<SOCKET> sockets{};
  std::vector<bool> found{};
};

Waiter::Waiter() : impl_(std::make_unique<Impl>()) {}

Waiter::~Waiter() {
  if (impl_->wakeUp != nullptr) CloseHandle(impl_->wakeUp);
  if (impl_->arrival != nullptr) CloseHandle(impl_->arrival);
}

void Waiter::Wake() { SetEvent(impl_->wakeUp); }

void Waiter::Watch(const DatagramSocket* socket) { Watch(std::span(&socket, socket == nullptr ? 0U : 1U)); }

// One event serves all: which of them it was shows at the sockets.
void Waiter::Watch(std::span<const DatagramSocket* const> sockets) {
  impl_->sockets.clear();
  impl_->found.assign(sockets.size(), false);
  for (const DatagramSocket* socket : sockets) {
    impl_->sockets.push_back(static_cast<SOCKET>(socket->Handle()));
    if (socket->IsOpen()) WSAEventSelect(impl_->sockets.back(), impl_->arrival, FD_READ);
  }
}

bool Waiter::HasFound(size_t index) const { return impl_->found.at(index); }

Waiter::Outcome Waiter::Wait(std::optional<std::chrono::nanoseconds> deadline) {
  if (impl_->wakeUp == nullptr || impl_->arrival == nullptr) return Outcome::Failed;
  const std::array<HANDLE, 2> either = {impl_->wakeUp, impl_->arrival};
  for (;;) {
    // The event tells of an arrival once, and of the next one when that was read. So it is reset before the look at the
    // socket: nothing that comes in between goes unnoticed.
    ResetEvent(impl_->arrival);
    if (WaitForSingleObject(impl_->wakeUp, 0) == WAIT_OBJECT_0) return Outcome::Woken;
    if (impl_->LookForArrivals()) return Outcome::Readable;
    const DWORD timeout = deadline ? MillisecondsUntil(*deadline) : INFINITE;
    if (timeout == 0) return Outcome::TimedOut;
    const DWORD outcome = WaitForMultipleObjects(static_cast<DWORD>(either.size()), either.data(), FALSE, timeout);
    if (outcome == WAIT_OBJECT_0) return Outcome::Woken;
    if (outcome == WAIT_FAILED) return Outcome::Failed;
  }
}

}  // namespace media_adapter::platform

#include "platform/waiter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "platform/clock.h"

namespace media_adapter::platform {

struct Waiter::Impl {
  int wakeUp = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
};

Waiter::Waiter() : impl_(std::make_unique<Impl>()) {}

Waiter::~Waiter() {
  if (impl_->wakeUp >= 0) close(impl_->wakeUp);
}

void Waiter::Wake() {
  const uint64_t one = 1;
  // The counter cannot overflow: every wait takes it back to zero.
  [[maybe_unused]] const ssize_t written = write(impl_->wakeUp, &one, sizeof one);
}

Waiter::Outcome Waiter::Wait(const DatagramSocket* socket, std::optional<std::chrono::nanoseconds> deadline) {
  if (impl_->wakeUp < 0) return Outcome::Failed;
  // poll leaves a negative descriptor alone: a closed socket is never readable.
  pollfd entries[] = {{impl_->wakeUp, POLLIN, 0}, {-1, POLLIN, 0}};
  if (socket != nullptr) entries[1].fd = static_cast<int>(socket->Handle());

  for (;;) {
    timespec timeout{};
    if (deadline) {
      const auto rest = std::max(*deadline - MonotonicNow(), std::chrono::nanoseconds(0));
      const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(rest);
      timeout = {seconds.count(), static_cast<long>((rest - seconds).count())};
    }
    const int ready = ppoll(entries, std::size(entries), deadline ? &timeout : nullptr, nullptr);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return Outcome::Failed;
    }
    if (entries[0].revents != 0) {
      uint64_t count = 0;
      if (read(impl_->wakeUp, &count, sizeof count) < 0 && errno != EAGAIN) return Outcome::Failed;
      return Outcome::Woken;
    }
    if (entries[1].revents != 0) return Outcome::Readable;
    if (deadline && MonotonicNow() >= *deadline) return Outcome::TimedOut;
  }
}

}  // namespace media_adapter::platform

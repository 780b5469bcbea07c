#include "platform/message_queue.h"

#include <mutex>

#include "platform/clock.h"

namespace media_adapter::platform {

void MessageQueue::PostRequest(std::shared_ptr<void> request) {
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(request));
  }
  waiter_.Wake();
}

void MessageQueue::PostQuit() {
  quit_ = true;
  waiter_.Wake();
}

[[gnu::hot]] std::chrono::nanoseconds MessageQueue::ArmTimer(uint32_t id, std::chrono::milliseconds interval) {
  const auto now = MonotonicNow();
  deadlines_.at(id) = now + interval;
  return now;
}

[[gnu::hot]] void MessageQueue::KillTimer(uint32_t id) { deadlines_.at(id).reset(); }

std::optional<uint32_t> MessageQueue::NextTimer() const {
  std::optional<uint32_t> next;
  for (uint32_t id = 1; id <= kMaxTimerId; ++id) {
    if (deadlines_[id] && (!next || *deadlines_[id] < *deadlines_[*next])) next = id;
  }
  return next;
}

bool MessageQueue::TakePosted(Message& message, Accept accept, Taken& taken) {
  if (quit_) {
    taken = Taken::Quit;
    return true;
  }
  if (accept == Accept::NoRequests) return false;
  std::lock_guard lock(mutex_);
  if (requests_.empty()) return false;
  message = {.kind = Message::Kind::Request, .request = std::move(requests_.front())};
  requests_.pop_front();
  taken = Taken::Message;
  return true;
}

MessageQueue::Taken MessageQueue::Take(Message& message, Accept accept) {
  for (;;) {
    if (Taken taken{}; TakePosted(message, accept, taken)) return taken;

    const auto timer = NextTimer();
    const auto deadline = timer ? deadlines_[*timer] : std::nullopt;
    const bool timerFirst = datagramWentLast_ && deadline && *deadline <= MonotonicNow();
    datagramWentLast_ = false;
    const auto outcome = timerFirst ? Waiter::Outcome::TimedOut : waiter_.Wait(deadline);

    switch (outcome) {
      case Waiter::Outcome::Woken:
        break;
      case Waiter::Outcome::Readable:
        datagramWentLast_ = true;
        message = {.kind = Message::Kind::Datagram};
        return Taken::Message;
      case Waiter::Outcome::TimedOut:
        deadlines_[*timer].reset();
        message = {.kind = Message::Kind::Timer, .timerId = *timer};
        return Taken::Message;
      case Waiter::Outcome::Failed:
        return Taken::Failed;
    }
  }
}

}  // namespace media_adapter::platform

// The worker's message queue: requests posted by other threads, ticks of its timers, arrivals on its socket, and the
// quit message, delivered one at a time by one blocking Take. PostRequest and PostQuit are for any thread, everything
// else is for the worker.
//
// Order: quit, requests in the order of their posting, a waiting datagram, the timer that is longest due. After each
// datagram a due timer goes first, so a flood of datagrams starves no timer.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "platform/mutex.h"
#include "platform/waiter.h"

namespace media_adapter::platform {

struct Message {
  enum class Kind { Request, Datagram, Timer };
  Kind kind = Kind::Request;
  uint32_t timerId = 0;             // of a Timer
  std::shared_ptr<void> request{};  // of a Request, as it was posted
};

class MessageQueue {
 public:
  static constexpr uint32_t kMaxTimerId = 11;

  enum class Accept { Everything, NoRequests };
  enum class Taken { Message, Quit, Failed };

  void PostRequest(std::shared_ptr<void> request);
  // Every Take from now on returns Quit.
  void PostQuit();

  // Any thread may ask, at next to no cost.
  bool IsQuitting() const { return quit_; }

  // Waits for the next message. With NoRequests, requests stay queued for a later Take.
  Taken Take(Message& message, Accept accept);

  // Delivers one tick after `interval`. Arming an armed timer starts it again. id: 1 to kMaxTimerId. Returns the time
  // now.
  std::chrono::nanoseconds ArmTimer(uint32_t id, std::chrono::milliseconds interval);
  void KillTimer(uint32_t id);

  // Delivers a Datagram message while `socket` has something to read; null watches none. To be called with null before
  // the socket is closed, and again after it was opened anew.
  void Watch(const DatagramSocket* socket) { waiter_.Watch(socket); }

 private:
  std::optional<uint32_t> NextTimer() const;
  bool TakePosted(Message& message, Accept accept, Taken& taken);

  Mutex mutex_;  // guards requests_
  std::deque<std::shared_ptr<void>> requests_;
  std::atomic<bool> quit_ = false;

  Waiter waiter_;
  std::array<std::optional<std::chrono::nanoseconds>, kMaxTimerId + 1> deadlines_{};
  bool datagramWentLast_ = false;
};

}  // namespace media_adapter::platform

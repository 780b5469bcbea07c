// What the message queue sleeps on: woken by another thread, by a datagram on a socket, or by a deadline. One thread
// waits; any thread wakes.
#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "platform/datagram_socket.h"

namespace media_adapter::platform {

class Waiter {
 public:
  enum class Outcome { Woken, Readable, TimedOut, Failed };

  Waiter();
  ~Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  // Ends the present wait, or the next one, with Woken. Several calls may end one wait only.
  void Wake();

  // Ends waits with Readable while `socket` has something to read; null or closed: never. A watched socket is to be let
  // go (null) before it is closed: a forked child may hold it open. Only the waiting thread calls it.
  void Watch(const DatagramSocket* socket);

  // Waits until MonotonicNow() reaches `deadline` (none: for ever). Woken goes before Readable, Readable before
  // TimedOut. A deadline that has passed looks once and does not sleep.
  Outcome Wait(std::optional<std::chrono::nanoseconds> deadline);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace media_adapter::platform

// What the message queue sleeps on: woken by another thread, by a datagram on a socket, or by a deadline. One thread
// waits; any thread wakes.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>

#include "platform/datagram_socket.h"

namespace media_adapter::platform {

class Waiter {
 public:
  enum class Outcome { Woken, Readable, TimedOut, Failed };

  Waiter();
  ~Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  // Ends the present wait, or the next one, with Woken. Several calls may end one wait only. A signal handler may call
  // it.
  void Wake();

  // Ends waits with Readable while `socket` has something to read; null or closed: never. A watched socket is to be let
  // go (null) before it is closed: a forked child may hold it open. Only the waiting thread calls it.
  void Watch(const DatagramSocket* socket);
  // The same of several sockets, of which closed ones are left out.
  void Watch(std::span<const DatagramSocket* const> sockets);

  // Waits until MonotonicNow() reaches `deadline` (none: for ever). Woken goes before Readable, Readable before
  // TimedOut. A deadline that has passed looks once and does not sleep.
  Outcome Wait(std::optional<std::chrono::nanoseconds> deadline);
  // Whether the last wait, which ended with Readable, found something at this one of the watched sockets.
  bool HasFound(size_t index) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace media_adapter::platform

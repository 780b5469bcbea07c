// The world that the library lives in during a test: a virtual clock, an in-memory network with device models on it,
// and the threads. A test owns one world at a time; platform.cpp implements platform/*.h over it.
//
// Exactly one thread runs at a time: a participant (the test, the worker) runs until it waits, then the next one whose
// wait has ended goes on. When all of them wait, time jumps to the next arrival, device timer or deadline, and only
// that happens; datagrams that arrive at one instant wait in the socket together. So a run depends on nothing but the
// test.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/adapters.h"
#include "platform/clock.h"
#include "platform/datagram_socket.h"
#include "simulator/device_model.h"

namespace media_adapter::sim {

using Time = std::chrono::nanoseconds;
using Datagram = std::vector<uint8_t>;
using platform::Endpoint;

struct LoggedDatagram {
  Time time{};  // of sending
  bool fromLibrary = false;
  Endpoint sender;
  Endpoint receiver;
  Datagram bytes;  // as sent, before the network touched them
};

// What the network does to one datagram.
struct Fate {
  unsigned copies = 1;  // 0 loses it, 2 doubles it
  Time delay{};         // on top of the latency
  std::optional<Datagram> bytes = {};
  std::optional<Endpoint> sender = {};
};

class SimWorld {
 public:
  SimWorld();
  ~SimWorld();
  SimWorld(const SimWorld&) = delete;
  SimWorld& operator=(const SimWorld&) = delete;
  static SimWorld& Current() { return *current; }

  // The network. A device hears what is sent to its address and every broadcast; it is asked when its own time has
  // come.
  simulator::DeviceModel& Attach(std::unique_ptr<simulator::DeviceModel> device);
  // Brings a datagram to the library's sockets, or only to that of this port, `delay` from now.
  void Inject(const Endpoint& sender, Datagram bytes, Time delay = {}, uint16_t port = 0);
  // Every datagram that was sent, in order.
  const std::vector<LoggedDatagram>& Log() const { return log_; }
  bool keepsLog = true;  // not to change once something was sent
  std::function<Fate(const LoggedDatagram&)> fate;
  Time latency = std::chrono::microseconds(200);
  Time wakeUp{};             // what it costs the library to have slept for a datagram
  size_t emptyReceives = 0;  // the library's, each of a microsecond
  // Addresses of this host. Null binds and anything sent goes out from the first.
  std::vector<platform::Ipv4Address> hostAddresses{{127, 0, 0, 1}, {192, 168, 1, 20}};

  // The host.
  platform::LocalTime localTime{2024, 2, 29, 13, 14, 15};
  platform::MacAddress adapter{0x02, 0, 0, 0, 0, 0x99};
  uint32_t lastSystemError = 0x2A;
  std::atomic<uint32_t> processId = 1;  // another one makes this a forked child
  std::vector<std::string> errors;      // texts of ShowError
  std::vector<std::string> traces;      // texts of TraceLine
  struct Failing {
    bool thread = false, sockets = false, open = false, broadcast = false, send = false;
  } failing;

  Time Now();
  // Lets the others run for `duration`.
  void Advance(Time duration);
  size_t OpenSockets() const { return sockets.size(); }
  // True while this thread does the world's work, not the library's.
  static bool IsInside() { return Inside::depth != 0; }

  // For the platform's sources. Threads that take no part may use the library, too; time goes on without regard to
  // them.

  // Waits until `take` returns true; it takes what it waited for. False when `deadline` came first.
  bool Wait(const std::function<bool()>& take, std::optional<Time> deadline);
  // Runs `change` on state that waits look at.
  template <typename Change>
  auto Do(Change change) {
    const Inside inside(*this);
    const struct AtEnd {
      SimWorld& world;
      ~AtEnd() { world.Schedule(); }
    } atEnd{*this};
    return change();
  }
  // A thread that takes part, or none. Its last act in the world is to set `ended`.
  std::optional<std::thread> StartThread(std::function<void()> body, std::shared_ptr<bool> ended);

  // The library's sockets by their handles; inside Wait and Do only.
  struct Socket {
    Endpoint local;
    bool broadcast = false;
    std::list<std::pair<Endpoint, Datagram>> received = {};
  };
  std::map<std::intptr_t, Socket> sockets;
  std::intptr_t lastHandle = 0;
  bool IsReadable(std::intptr_t handle) const {
    return sockets.contains(handle) && !sockets.at(handle).received.empty();
  }
  void Transmit(const LoggedDatagram& datagram);

 private:
  // Holds the lock of the world.
  struct Inside {
    explicit Inside(SimWorld& world) : lock(world.mutex_) { ++depth; }
    ~Inside() { --depth; }
    std::lock_guard<std::recursive_mutex> lock;
    static inline thread_local int depth = 0;
  };
  struct Sleeper {
    std::function<bool()> take;
    std::optional<Time> deadline;
    bool participant = true;
    bool released = false;
    bool taken = false;
    std::condition_variable_any wake = {};
  };
  void Schedule();
  bool ReleaseOne();
  void Release(Sleeper& sleeper, bool taken);
  bool HappenNext();
  void SendAll(const Endpoint& sender, const std::vector<simulator::Outgoing>& datagrams);
  [[noreturn]] void AbortDeadlocked() const;

  std::recursive_mutex mutex_;  // recursive: fate functions may ask for the time or inject
  Time now_{std::chrono::seconds(1000)};
  std::list<Sleeper*> sleepers_;  // in the order in which they fell asleep
  bool running_ = true;           // some participant runs
  bool scheduling_ = false;
  std::multimap<Time, std::function<void()>> arrivals_;
  std::vector<std::unique_ptr<simulator::DeviceModel>> devices_;
  std::vector<LoggedDatagram> log_;
  size_t transmitted_ = 0;
  static inline SimWorld* current = nullptr;
};

}  // namespace media_adapter::sim

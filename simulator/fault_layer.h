// A bad network between two ends: loses, doubles, reorders and delays the datagrams that pass through it. A pure
// function of the datagrams, of time and of the seed: the same input gives the same output. Used by the UDP server and
// by tests in process, one layer for each direction.
//
// Each datagram is judged in this order: lost; else sent twice; then each copy held back to follow the next datagram
// that passes (or to go after 5 ms when none does); what passes leaves after the delay. One datagram is held at most.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>

#include "simulator/datagrams.h"

namespace media_adapter::simulator {

struct FaultOptions {
  double loss = 0;  // probabilities, 0 to 1
  double duplicate = 0;
  double reorder = 0;
  std::chrono::microseconds delay{0};
  uint64_t seed = 1;
};

// A datagram on its way. `peer` and `route` mean what the caller wants them to; they come out as they went in.
struct Travelling {
  Datagram bytes;
  platform::Endpoint peer;
  size_t route = 0;
};

class FaultLayer {
 public:
  static constexpr std::chrono::milliseconds kHoldTime{5};

  explicit FaultLayer(const FaultOptions& options) : options_(options), random_(options.seed) {}

  // False when every datagram would leave as it entered, so that a caller may pass the layer by.
  bool IsActive() const;
  void Enter(Travelling datagram, Time now);
  // The next datagram that is due, in order; none when there is none by now.
  std::optional<Travelling> Leave(Time now);
  // When a datagram will be due.
  std::optional<Time> NextTime() const;
  // True while a datagram of `route` is on its way.
  bool Holds(size_t route) const;

 private:
  struct Waiting {
    Time due;
    Travelling datagram;
  };

  bool Happens(double probability);
  void Pass(Travelling datagram, bool isReordered, Time now);
  void ReleaseHeld(Time now);

  FaultOptions options_;
  std::mt19937_64 random_;
  std::deque<Waiting> queue_;    // by ascending time
  std::optional<Waiting> held_;  // due: when it goes even if no datagram follows
};

}  // namespace media_adapter::simulator

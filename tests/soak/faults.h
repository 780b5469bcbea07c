// What goes wrong around the library during a soak: datagrams that are lost, doubled, reordered, damaged or not meant
// for it, and a device that refuses, answers short or long, restarts, or dies. Remembers which statuses that explains.
//
// Left out is what the protocol cannot survive: damage to the bytes of a sector (no checksum would tell), and a late
// duplicate of an earlier write. A duplicate arrives together with its original, and nothing is late by more than a few
// latencies, while a retransmission takes seconds.
#pragma once

#include <random>
#include <set>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::soak {

// Not the distributions of a standard library: a seed is to mean the same everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) : generator_(seed) {}
  size_t Below(size_t limit) { return generator_() % limit; }
  bool OneIn(size_t n) { return n != 0 && Below(n) == 0; }  // never for 0
  template <typename Choices>
  auto Of(const Choices& choices) {
    return choices[Below(std::size(choices))];
  }

 private:
  std::mt19937_64 generator_;
};

class Faults {
 public:
  Faults(sim::SimWorld& world, simulator::DeviceModel& device, Random& random);

  void Change();  // to others, none among them
  void Stop();    // the device lives again, without a connection
  bool AreOn() const { return mix_.areOn; }
  void BeginStep();
  bool Explain(uint32_t status) const { return AreOn() && explained_.contains(status); }
  size_t Requests() const { return requests_; }  // of the library since the step began
  std::string Text() const;

 private:
  // One in so many datagrams, each; 0 for none.
  struct Mix {
    bool areOn = false;
    size_t status = 0, refusal = 0, size = 0, damage = 0, foreign = 0, restart = 0;
    size_t writesUntilDeath = 0;  // and 0 for a device that lives on
  };
  sim::Fate Touch(const sim::LoggedDatagram& datagram);
  sim::Fate TouchRequest(const sim::LoggedDatagram& request);
  sim::Fate TouchReply(const sim::LoggedDatagram& reply);
  bool Dies(const sim::LoggedDatagram& request);
  void Refuse(const sim::LoggedDatagram& request);
  sim::Datagram OfAnotherSize(sim::Datagram reply);
  void SendForeign(const sim::LoggedDatagram& model);
  void Damage(sim::Datagram& bytes, size_t kind);
  uint32_t AnyStatus();

  sim::SimWorld& world_;
  simulator::DeviceModel& device_;
  Random& random_;
  Mix mix_;
  bool isDead_ = false;
  size_t requests_ = 0;
  std::set<uint32_t> explained_;
};

}  // namespace media_adapter::soak

// The lies around a device over a Disk: what its network does to the requests that reach it and to its answers, by a
// script of faults, each of which comes some exchanges after the one before.
#pragma once

#include "fuzz/fuzz_world.h"
#include "fuzz/watched_disk.h"

namespace media_adapter::fuzz {

struct Fault {
  enum Kind : uint8_t {
    kStatus,         // answers `value`, does nothing
    kStatusAfter,    // does it, then answers `value`
    kSize,           // an item of `value` bytes
    kNoItem,         // status 0 without a body
    kTwoItems,       // a second, shorter item of the same
    kDropWrite,      // acknowledges a write and forgets it
    kDropWrites,     // all of them from now on
    kLoseRequest,    //
    kLoseReply,      //
    kReplyTwice,     //
    kDie,            // says nothing ever again
    kRepeatPacket,   // all packets of a stream have the number `value` from now on
    kPacketNumber,   // one packet has it
    kOtherGeometry,  // a connection that tells `value` as the last sector
    kKinds
  };
  uint32_t after = 0;  // exchanges since the fault before
  Kind kind{};
  uint32_t value = 0;

  static Fault From(Input& input);
  // What the library reads back may be other than what it wrote.
  bool IsLie() const {
    return kind == kDropWrite || kind == kDropWrites || kind == kRepeatPacket || kind == kPacketNumber ||
           (kind == kStatus && value == 0);
  }
};

class Lies {
 public:
  // It is silent for good after `budget` exchanges.
  Lies(Disk& disk, uint32_t lastSector, uint32_t budget) : disk_(disk), lastSector_(lastSector), budget_(budget) {}

  void Add(const Fault& fault) { faults_.push_back(fault); }
  bool IsSilent() const { return budget_ == 0; }
  bool HasFaults() const { return !faults_.empty(); }
  bool HasLies() const { return std::ranges::any_of(faults_, &Fault::IsLie); }

  Fate Touch(World& world, const LoggedDatagram& datagram);

 private:
  Fate TouchRequest(World& world, const Datagram& request);
  Fate TouchReply(World& world, Datagram reply);
  void TouchPacket(World& world, Datagram& packet, const Fault& fault);

  Disk& disk_;
  uint32_t lastSector_;
  uint32_t budget_;
  std::vector<Fault> faults_;
  size_t nextFault_ = 0;
  uint32_t sinceFault_ = 0;
  std::optional<Fault> replyFault_;  // that the next reply shows
  uint32_t repeatedPacket_ = 0;      // not 0: the only number of a stream's packets
  std::vector<bool> sentPackets_;    // of the running stream, by number
  sim::Time lastNewPacket_{};
};

}  // namespace media_adapter::fuzz

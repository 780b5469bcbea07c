// A device over a Disk that answers as devices do, but for the faults of a script: each comes some exchanges after the
// one before.
#pragma once

#include <span>
#include <vector>

#include "fuzz/fuzz_platform.h"
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
    kRepeatPacket,   // a stream that sends packet `value` only, from now on
    kPacketNumber,   // one packet with the number `value`
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

class Device {
 public:
  Device(Disk& disk, uint32_t lastSector, uint32_t budget) : disk_(disk), lastSector_(lastSector), budget_(budget) {}

  void AddFault(const Fault& fault) { faults_.push_back(fault); }
  // Exchanges after which it is silent for good.
  bool IsSilent() const { return budget_ == 0; }
  bool HasFaults() const { return !faults_.empty(); }
  bool HasLies() const;

  void OnRequest(std::span<const uint8_t> request);

 private:
  void Answer(std::span<const uint8_t> request, const Fault* fault);
  void AnswerConnection(std::span<const uint8_t> request, const Fault* fault);
  void AnswerRead(std::span<const uint8_t> request, const Fault* fault);
  void AnswerWrite(std::span<const uint8_t> request, const Fault* fault);
  void StartStream(std::span<const uint8_t> request, const Fault* fault);
  void ContinueStream(std::span<const uint8_t> request, const Fault* fault);
  void SendPacket(std::span<const uint8_t> request, uint32_t number, const Fault* fault);
  void Send(std::span<const uint8_t> request, uint32_t status, std::span<const uint8_t> body, const Fault* fault);

  Disk& disk_;
  uint32_t lastSector_;
  uint32_t budget_;
  std::vector<Fault> faults_;
  size_t nextFault_ = 0;
  uint32_t sinceFault_ = 0;
  bool dropsWrites_ = false;

  std::vector<uint64_t> stream_;   // the sectors of the running stream
  uint32_t repeatedPacket_ = 0;    // not 0: the only one that it sends
  std::vector<bool> sentPackets_;  // by number
  std::chrono::nanoseconds lastNewPacket_{};
};

}  // namespace media_adapter::fuzz

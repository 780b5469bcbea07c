// What goes wrong around the library in the soak and the fuzz targets: datagrams that are lost, doubled, reordered,
// damaged or not meant for it, and a device that refuses, lies, restarts, or dies. They come at random, at rates that
// change, or as planned, each some requests after the one before. Remembers which statuses that explains.
//
// Left out is what the protocol cannot survive: damage to the bytes of a sector (no checksum would tell), and a late
// duplicate of an earlier write. A duplicate arrives together with its original, and nothing is late by more than a few
// latencies, while a retransmission takes seconds.
#pragma once

#include <deque>
#include <set>

#include "fuzz/choices.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"
#include "tests/sim_platform/sim_world.h"

namespace media_adapter::fuzz {

using sim::Datagram;
using sim::Fate;
using sim::LoggedDatagram;

// What a device says to a request.
inline Datagram AnswerTo(const Datagram& request, uint8_t command, uint32_t status, std::span<const uint8_t> body,
                         const platform::MacAddress& mac) {
  Datagram reply(wire::kHeaderSize + body.size());
  std::copy_n(request.begin(), wire::kHeaderSize, reply.begin());
  std::ranges::copy(body, reply.begin() + wire::kHeaderSize);
  reply[wire::kCommandOffset] = command;
  reply[wire::kSenderOffset] = wire::kDeviceSender;
  WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(reply.size()));
  std::ranges::copy(mac, reply.begin() + wire::kSourceMacOffset);
  WriteU32(reply, wire::kStatusOffset, status);
  return reply;
}

class Faults {
 public:
  enum Kind : uint8_t {
    kLoss,
    kDouble,
    kReorder,
    kStatus,   // does it, then answers another status
    kRefusal,  // answers a status, does nothing
    kSize,     // success with less than what was asked for, or with something behind it
    kDamage,
    kForeign,
    kRestart,
    kAtRandom,  // those before this
    // And those that are only planned:
    kTwoItems = kAtRandom,  // a second, shorter item of the same
    kDie,                   // says nothing ever again
    kOtherGeometry,         // a connection tells another last sector
    kDropWrite,             // acknowledges a write and forgets it
    kDropWrites,            // all of them from now on
    kPacketNumber,          // a packet has another number
    kRepeatPacket,          // and so have all of the stream from now on, the same
    kKinds
  };

  Faults(sim::SimWorld& world, simulator::DeviceModel& device, Choices& choices)
      : world_(world), device_(device), choices_(choices) {}

  // Plans one more. `after`: so many requests behind the one before.
  void Plan(size_t after, Kind kind) {
    areOn_ = true;
    planned_.emplace_back(after, kind);
    hasFaults_ = true;
    // What the library reads back may then be other than what it wrote; a latency may be as long as a timer.
    hasLies_ = hasLies_ || kind >= kDropWrite || kind == kReorder;
  }
  void LimitRequests(size_t count) {
    areOn_ = true;
    requestsLeft_ = count;
  }
  bool HasFaults() const { return hasFaults_; }
  bool HasLies() const { return hasLies_; }
  bool IsSilent() const { return isDead_; }
  bool DropsWrite() const { return dropsNext_ || dropsAll_; }  // the one that the device has just got

  // To others at random, none among them.
  void Change() {
    Stop();
    areOn_ = !choices_.OneIn(3);
    if (!areOn_) return;
    constexpr size_t kLossRates[] = {0, 0, 3, 20, 100}, kNetworkRates[] = {0, 0, 3, 20};
    constexpr size_t kRates[] = {0, 0, 0, 0, 20, 80, 300};
    for (size_t& rate : oneIn_) rate = choices_.Of(kRates);
    oneIn_[kLoss] = choices_.Of(kLossRates);
    for (const Kind kind : {kDouble, kReorder}) oneIn_[kind] = choices_.Of(kNetworkRates);
    oneIn_[kForeign] /= 4;
    oneIn_[kRestart] *= 2;
    writesLeft_ = choices_.OneIn(3) ? 1 + choices_.Below(40) : 0;
  }
  // The device lives again, without a connection.
  void Stop() {
    if (areOn_) device_.Restart();
    areOn_ = isDead_ = false;
  }
  bool AreOn() const { return areOn_; }
  void BeginStep() {
    requests_ = 0;
    explained_ = {kNoResponse};
  }
  bool Explain(uint32_t status) const { return areOn_ && explained_.contains(status); }
  size_t Requests() const { return requests_; }  // of the library since the step began

  std::string Text() const {
    if (!areOn_) return "sound";
    std::string text = "one in: loss double reorder status refusal size damage foreign restart";
    for (const size_t rate : oneIn_) text += " " + std::to_string(rate);
    return text + ", writes left " + std::to_string(writesLeft_);
  }

  // What becomes of a datagram.
  Fate Touch(const LoggedDatagram& datagram) {
    if (datagram.fromLibrary) ++requests_;
    if (!areOn_) return {};
    Fate fate = datagram.fromLibrary ? TouchRequest(datagram) : TouchReply(datagram);
    if (isDead_) return {.copies = 0};
    if (fate.copies != 0 && IsDue(kDamage)) {
      if (!fate.bytes) fate.bytes = datagram.bytes;
      Damage(*fate.bytes, choices_.Below(kDamages));
    }
    if (IsDue(kLoss)) fate.copies = 0;
    if (IsDue(kDouble)) fate.copies *= 2;
    if (IsDue(kReorder)) fate.delay = world_.latency * (1 + choices_.Below(30)) / 10;
    return fate;
  }

  std::optional<uint32_t> lastSector;  // that the device tells instead of its own

 private:
  using Command = wire::Command;

  static constexpr uint32_t kNotConnected = 7, kInvalidSectorSize = 250, kNoResponse = 253;
  static constexpr size_t kDamages = 6, kForeigners = 12;
  static constexpr size_t kData = wire::kHeaderSize + wire::kItemHeaderSize;  // of a read reply or a packet

  static bool Is(const Datagram& bytes, Command command, uint8_t plus = 0) {
    return bytes[wire::kCommandOffset] == static_cast<uint8_t>(command) + plus;
  }

  bool IsDue(Kind kind) {
    if (!planned_.empty() && planned_.front().second == kind && waited_ >= planned_.front().first) {
      planned_.pop_front();
      waited_ = 0;
      return true;
    }
    return kind < kAtRandom && choices_.OneIn(oneIn_[kind]);
  }

  Fate TouchRequest(const LoggedDatagram& request) {
    ++waited_;
    const bool isWrite = Is(request.bytes, Command::RFAWriteData);
    const bool isLast = isWrite && writesLeft_ != 0 && --writesLeft_ == 0;
    if (!isDead_ && (isLast || IsDue(kDie) || requestsLeft_-- == 0)) {
      isDead_ = true;  // with this one done or not
      if (choices_.OneIn(2)) device_.OnDatagram(request.bytes, request.sender, world_.Now());
    }
    if (isDead_) return {};
    if (IsDue(kRestart)) {
      device_.Restart();
      explained_.insert(kNotConnected);
    }
    if (Is(request.bytes, Command::RFAStartTransfer)) packetNumber_ = 0;
    if (isWrite) dropsAll_ = dropsAll_ || IsDue(kDropWrites);
    if (isWrite) dropsNext_ = IsDue(kDropWrite);
    if (!IsDue(kRefusal)) return {};
    Refuse(request);
    return {.copies = 0};
  }

  void Refuse(const LoggedDatagram& request) {
    const bool isTransfer = Is(request.bytes, Command::RFAStartTransfer);
    const bool isStream = isTransfer || Is(request.bytes, Command::TransferAcknowledgement);
    const int command = isStream ? static_cast<int>(Command::TransferData) : request.bytes[wire::kCommandOffset] + 1;
    Datagram reply = AnswerTo(request.bytes, static_cast<uint8_t>(command), AnyStatus(), {}, device_.Identity().mac);
    if (isTransfer) WriteU16(reply, wire::kSequenceOffset, 1);
    world_.Inject(request.receiver, std::move(reply), world_.latency);
  }

  Fate TouchReply(const LoggedDatagram& original) {
    if (IsDue(kForeign)) SendForeign(original);
    Datagram reply = original.bytes;
    const bool isConnection = Is(reply, Command::RFAConnect, 1), isPacket = Is(reply, Command::TransferData);
    if (isConnection && IsDue(kOtherGeometry)) lastSector = static_cast<uint32_t>(choices_.Below(1ULL << 32));
    if (isConnection && lastSector && reply.size() > kData) WriteU32(reply, kData, *lastSector);
    if (isPacket && IsDue(kRepeatPacket)) packetNumber_ = 1 + choices_.Below(wire::kMaxPacketNumber);
    if (isPacket && (packetNumber_ != 0 || IsDue(kPacketNumber))) {
      const size_t number = packetNumber_ != 0 ? packetNumber_ : choices_.Below(0x10000);
      WriteU16(reply, wire::kSequenceOffset, static_cast<uint16_t>(number));
    }
    if (IsDue(kStatus)) {
      WriteU32(reply, wire::kStatusOffset, AnyStatus());
    } else if (IsDue(kSize)) {
      Resize(reply, isPacket);
    } else if (reply.size() > kData && IsDue(kTwoItems)) {
      const Datagram second(reply.begin() + wire::kHeaderSize, reply.end() - 1 - (reply.size() - kData) / 2);
      reply.insert(reply.end(), second.begin(), second.end());
      WriteU16(reply, reply.size() - second.size() + 2, static_cast<uint16_t>(second.size() - wire::kItemHeaderSize));
    }
    WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(reply.size()));
    return {.bytes = std::move(reply)};
  }

  void Resize(Datagram& reply, bool isPacket) {
    if (Is(reply, Command::RFAConnect, 1) && choices_.OneIn(4)) {
      explained_.insert(kInvalidSectorSize);
      reply.resize(wire::kHeaderSize);
    } else if (reply.size() > kData && (isPacket || Is(reply, Command::RFAReadData, 1))) {
      const size_t most = isPacket ? wire::kPacketSize : 2 * simulator::kSectorSize;
      const size_t size = choices_.OneIn(2) ? most : choices_.Below(reply.size() - kData);
      reply.resize(size == 0 ? wire::kHeaderSize : kData + size, 0xA5);
      if (size != 0) WriteU16(reply, kData - 2, static_cast<uint16_t>(size));
    }
  }

  // A copy with other bytes that the library must not take: from somebody else, or not an answer to its request.
  void SendForeign(const LoggedDatagram& model) {
    sim::Endpoint sender = model.sender;
    Datagram bytes = model.bytes;
    for (size_t i = kData; i < bytes.size(); ++i) bytes[i] ^= 0x5A;
    const size_t kind = choices_.Below(kForeigners);
    const bool isPacket = Is(bytes, Command::TransferData);  // taken whatever its number
    if (kind < kDamages) Damage(bytes, kind);
    if (kind == 6) sender.address[3] ^= 0x40;
    if (kind == 7 || (kind == 8 && isPacket)) ++sender.port;
    if (kind == 8 && !isPacket) bytes[wire::kSequenceOffset + 1] ^= 0x20;
    if (kind == 9) bytes[wire::kSourceMacOffset + 5] ^= 0x40;
    if (kind == 10) bytes[wire::kCommandOffset] ^= 0x40;
    if (kind == 11) {  // a test report
      bytes.resize(wire::kHeaderSize + 8);
      bytes[wire::kCommandOffset] = static_cast<uint8_t>(Command::TestReport);
      WriteU16(bytes, wire::kLengthOffset, static_cast<uint16_t>(bytes.size()));
      WriteU32(bytes, wire::kHeaderSize, 0x00040D0F);
    }
    world_.Inject(sender, std::move(bytes), choices_.Below(4) * world_.latency / 2);
  }

  void Damage(Datagram& bytes, size_t kind) {
    constexpr size_t kFields[] = {wire::kLengthOffset, wire::kMagicOffset + 1, wire::kFormatOffset,
                                  wire::kSenderOffset};
    if (kind == 0) return bytes.resize(choices_.Below(bytes.size()));
    if (kind == 1) return bytes.resize(bytes.size() + 1 + choices_.Below(300));
    bytes[kFields[kind - 2]] ^= 3;
  }

  uint32_t AnyStatus() { return *explained_.insert(choices_.Status()).first; }

  sim::SimWorld& world_;
  simulator::DeviceModel& device_;
  Choices& choices_;
  bool areOn_ = false;
  std::array<size_t, kAtRandom> oneIn_{};          // one in so many datagrams, each; 0 for none
  std::deque<std::pair<size_t, Kind>> planned_{};  // each so many requests after the one before
  size_t waited_ = 0;                              // requests since the last that was planned
  bool hasFaults_ = false, hasLies_ = false, dropsNext_ = false, dropsAll_ = false;
  size_t packetNumber_ = 0;         // not 0: the only number of a stream's packets
  size_t writesLeft_ = 0;           // until the device dies; 0 when it lives on
  size_t requestsLeft_ = SIZE_MAX;  // until it dies
  bool isDead_ = false;
  size_t requests_ = 0;
  std::set<uint32_t> explained_;
};

}  // namespace media_adapter::fuzz

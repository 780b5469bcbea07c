// What goes wrong around the library during a soak: datagrams that are lost, doubled, reordered, damaged or not meant
// for it, and a device that refuses, answers short or long, restarts, or dies. Remembers which statuses that explains.
//
// Left out is what the protocol cannot survive: damage to the bytes of a sector (no checksum would tell), and a late
// duplicate of an earlier write. A duplicate arrives together with its original, and nothing is late by more than a few
// latencies, while a retransmission takes seconds.
#pragma once

#include <random>
#include <set>

#include "protocol/little_endian.h"
#include "protocol/wire.h"
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
  Faults(sim::SimWorld& world, simulator::DeviceModel& device, Random& random)
      : world_(world), device_(device), random_(random) {
    world_.fate = [this](const sim::LoggedDatagram& datagram) { return Touch(datagram); };
  }

  // To others, none among them.
  void Change() {
    Stop();
    areOn_ = !random_.OneIn(3);
    if (!areOn_) return;
    constexpr size_t kLossRates[] = {0, 0, 3, 20, 100}, kNetworkRates[] = {0, 0, 3, 20};
    constexpr size_t kRates[] = {0, 0, 0, 0, 20, 80, 300};
    for (size_t& rate : oneIn_) rate = random_.Of(kRates);
    oneIn_[kLoss] = random_.Of(kLossRates);
    for (const Kind kind : {kDouble, kReorder}) oneIn_[kind] = random_.Of(kNetworkRates);
    oneIn_[kForeign] /= 4;
    writesLeft_ = random_.OneIn(3) ? 1 + random_.Below(40) : 0;
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

 private:
  using Fate = sim::Fate;
  using Datagram = sim::Datagram;
  using Logged = sim::LoggedDatagram;
  using Command = wire::Command;
  enum Kind : uint8_t { kLoss, kDouble, kReorder, kStatus, kRefusal, kSize, kDamage, kForeign, kRestart, kKinds };

  static constexpr uint32_t kNotConnected = 7, kInvalidSectorSize = 250, kNoResponse = 253;
  static constexpr size_t kDamages = 6, kForeigners = 12;
  static constexpr size_t kData = wire::kHeaderSize + wire::kItemHeaderSize;  // of a read reply or a packet

  static bool Is(const Datagram& bytes, Command command, uint8_t plus = 0) {
    return bytes[wire::kCommandOffset] == static_cast<uint8_t>(command) + plus;
  }

  Fate Touch(const Logged& datagram) {
    if (datagram.fromLibrary) ++requests_;
    if (!areOn_) return {};
    Fate fate = datagram.fromLibrary ? TouchRequest(datagram) : TouchReply(datagram);
    if (isDead_) return {.copies = 0};
    if (fate.copies != 0 && random_.OneIn(oneIn_[kDamage])) {
      if (!fate.bytes) fate.bytes = datagram.bytes;
      Damage(*fate.bytes, random_.Below(kDamages));
    }
    if (random_.OneIn(oneIn_[kLoss])) fate.copies = 0;
    if (random_.OneIn(oneIn_[kDouble])) fate.copies *= 2;
    if (random_.OneIn(oneIn_[kReorder])) fate.delay = world_.latency * (1 + random_.Below(30)) / 10;
    return fate;
  }

  Fate TouchRequest(const Logged& request) {
    const bool isWrite = Is(request.bytes, Command::RFAWriteData);
    if (isWrite && !isDead_ && writesLeft_ != 0 && --writesLeft_ == 0) {
      isDead_ = true;  // with this write done or not
      if (random_.OneIn(2)) device_.OnDatagram(request.bytes, request.sender, world_.Now());
    }
    if (isDead_) return {};
    if (random_.OneIn(2 * oneIn_[kRestart])) {
      device_.Restart();
      explained_.insert(kNotConnected);
    }
    if (Is(request.bytes, Command::TransferAcknowledgement) || !random_.OneIn(oneIn_[kRefusal])) return {};
    Refuse(request);
    return {.copies = 0};
  }

  // The device answers with a status and does nothing.
  void Refuse(const Logged& request) {
    Datagram reply(request.bytes.begin(), request.bytes.begin() + wire::kHeaderSize);
    ++reply[wire::kCommandOffset];
    reply[wire::kSenderOffset] = wire::kDeviceSender;
    if (Is(reply, Command::TransferData)) WriteU16(reply, wire::kSequenceOffset, 1);
    WriteU16(reply, wire::kLengthOffset, wire::kHeaderSize);
    std::ranges::copy(device_.Identity().mac, reply.begin() + wire::kSourceMacOffset);
    WriteU32(reply, wire::kStatusOffset, AnyStatus());
    world_.Inject(request.receiver, std::move(reply), world_.latency);
  }

  Fate TouchReply(const Logged& reply) {
    Fate fate;
    if (random_.OneIn(oneIn_[kForeign])) SendForeign(reply);
    if (random_.OneIn(oneIn_[kStatus])) {
      fate.bytes = reply.bytes;
      WriteU32(*fate.bytes, wire::kStatusOffset, AnyStatus());
    } else if (random_.OneIn(oneIn_[kSize])) {
      fate.bytes = OfAnotherSize(reply.bytes);
    }
    return fate;
  }

  // Success with less than what was asked for, or with something behind it.
  Datagram OfAnotherSize(Datagram reply) {
    const bool isPacket = Is(reply, Command::TransferData);
    if (Is(reply, Command::RFAConnect, 1) && random_.OneIn(4)) {
      explained_.insert(kInvalidSectorSize);
      reply.resize(wire::kHeaderSize);
    } else if (reply.size() > kData && (isPacket || Is(reply, Command::RFAReadData, 1))) {
      const size_t most = isPacket ? wire::kPacketSize : 2 * simulator::kSectorSize;
      const size_t size = random_.OneIn(2) ? most : random_.Below(reply.size() - kData);
      reply.resize(size == 0 ? wire::kHeaderSize : kData + size, 0xA5);
      if (size != 0) WriteU16(reply, kData - 2, static_cast<uint16_t>(size));
    }
    WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(reply.size()));
    return reply;
  }

  // A copy with other bytes that the library must not take: from somebody else, or not an answer to its request.
  void SendForeign(const Logged& model) {
    sim::Endpoint sender = model.sender;
    Datagram bytes = model.bytes;
    for (size_t i = kData; i < bytes.size(); ++i) bytes[i] ^= 0x5A;
    const size_t kind = random_.Below(kForeigners);
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
    world_.Inject(sender, std::move(bytes), random_.Below(4) * world_.latency / 2);
  }

  void Damage(Datagram& bytes, size_t kind) {
    constexpr size_t kFields[] = {wire::kLengthOffset, wire::kMagicOffset + 1, wire::kFormatOffset,
                                  wire::kSenderOffset};
    if (kind == 0) return bytes.resize(random_.Below(bytes.size()));
    if (kind == 1) return bytes.resize(bytes.size() + 1 + random_.Below(300));
    bytes[kFields[kind - 2]] ^= 3;
  }

  uint32_t AnyStatus() {
    constexpr uint32_t kStatuses[] = {1,   2,   3,   4,   5,   6,   7,   8,          9,         49,
                                      20,  236, 238, 239, 240, 241, 243, 244,        245,       248,
                                      249, 250, 251, 252, 253, 255, 128, 0xFFFFFFFF, 0x80000000};
    const uint32_t status = random_.Of(kStatuses);
    explained_.insert(status);
    return status;
  }

  sim::SimWorld& world_;
  simulator::DeviceModel& device_;
  Random& random_;
  bool areOn_ = false;
  std::array<size_t, kKinds> oneIn_{};  // one in so many datagrams, each; 0 for none
  size_t writesLeft_ = 0;               // until the device dies; 0 when it lives on
  bool isDead_ = false;
  size_t requests_ = 0;
  std::set<uint32_t> explained_;
};

}  // namespace media_adapter::soak

#include "fuzz/lying_device.h"

#include "protocol/little_endian.h"
#include "protocol/wire.h"

namespace media_adapter::fuzz {
namespace {

using wire::Command;

constexpr std::chrono::seconds kMaxStandstill{100};
constexpr size_t kItemSize = wire::kHeaderSize + 2,
                 kItem = wire::kHeaderSize + wire::kItemHeaderSize;  // a body's first

bool Is(const Datagram& bytes, Command command, uint8_t plus = 0) {
  return bytes[wire::kCommandOffset] == static_cast<uint8_t>(command) + plus;
}

// Makes the item of a read's reply or of a packet that large.
void Resize(Datagram& reply, size_t size) {
  reply.resize(kItem + size);
  WriteU16(reply, kItemSize, static_cast<uint16_t>(size));
}

}  // namespace

Fault Fault::From(Input& input) {
  Fault fault{.after = input.Byte(), .kind = static_cast<Kind>(input.Byte() % kKinds)};
  if (fault.kind == kStatus || fault.kind == kStatusAfter) fault.value = input.Status();
  if (fault.kind == kSize) fault.value = input.U16() % 1100;
  if (fault.kind == kRepeatPacket || fault.kind == kPacketNumber) fault.value = input.U16();
  if (fault.kind == kOtherGeometry) fault.value = input.U32();
  return fault;
}

Fate Lies::Touch(World& world, const LoggedDatagram& datagram) {
  return datagram.fromLibrary ? TouchRequest(world, datagram.bytes) : TouchReply(world, datagram.bytes);
}

Fate Lies::TouchRequest(World& world, const Datagram& request) {
  if (budget_ == 0) return {.copies = 0};
  --budget_;
  const bool isAcknowledgement = Is(request, Command::TransferAcknowledgement);
  if (isAcknowledgement && world.network.Now() - lastNewPacket_ > kMaxStandstill) {
    Breach("a stream that stands still goes on");
  }
  if (Is(request, Command::RFAStartTransfer)) {
    sentPackets_.assign(wire::kMaxPacketNumber + 1U, false);
    repeatedPacket_ = 0;
    lastNewPacket_ = world.network.Now();
  }
  disk_.keepsNext = true;
  if (nextFault_ == faults_.size() || sinceFault_++ < faults_[nextFault_].after) return {};
  const Fault& fault = faults_[nextFault_++];
  sinceFault_ = 0;
  replyFault_ = fault;  // of no effect unless it is one of replies
  if (fault.kind == Fault::kDie) budget_ = 0;
  if (fault.kind == Fault::kDropWrite) disk_.keepsNext = false;
  if (fault.kind == Fault::kDropWrites) disk_.keepsAny = false;
  if (fault.kind == Fault::kRepeatPacket && isAcknowledgement) repeatedPacket_ = fault.value;
  if (fault.kind == Fault::kStatus) {
    const bool isStream = isAcknowledgement || Is(request, Command::RFAStartTransfer);
    const auto command = static_cast<uint8_t>(request[wire::kCommandOffset] + 1);
    world.Reply(request, isStream ? static_cast<uint8_t>(Command::TransferData) : command, fault.value, {});
  }
  const bool isLost = fault.kind == Fault::kDie || fault.kind == Fault::kLoseRequest || fault.kind == Fault::kStatus;
  return {.copies = isLost ? 0U : 1U};
}

Fate Lies::TouchReply(World& world, Datagram reply) {
  if (budget_ == 0) return {.copies = 0};
  const Fault fault = std::exchange(replyFault_, {}).value_or(Fault{.kind = Fault::kKinds});
  if (fault.kind == Fault::kLoseReply) return {.copies = 0};
  const bool isPacket = Is(reply, Command::TransferData), hasItem = reply.size() > kItem;
  if (Is(reply, Command::RFAConnect, 1) && hasItem) {
    WriteU32(reply, kItem, fault.kind == Fault::kOtherGeometry ? fault.value : lastSector_);
  } else if (isPacket || Is(reply, Command::RFAReadData, 1)) {
    const size_t size = reply.size() - std::min(reply.size(), kItem);
    if (fault.kind == Fault::kSize && hasItem) Resize(reply, fault.value);
    if (fault.kind == Fault::kNoItem) reply.resize(wire::kHeaderSize);
    if (fault.kind == Fault::kTwoItems && hasItem) {
      Datagram second(reply.begin() + wire::kHeaderSize, reply.begin() + static_cast<std::ptrdiff_t>(kItem + size / 3));
      WriteU16(second, kItemSize - wire::kHeaderSize, static_cast<uint16_t>(size / 3));
      reply.insert(reply.end(), second.begin(), second.end());
    }
  }
  if (isPacket) TouchPacket(world, reply, fault);
  if (fault.kind == Fault::kStatusAfter) WriteU32(reply, wire::kStatusOffset, fault.value);
  WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(reply.size()));
  world.statuses.push_back(ReadU32(reply, wire::kStatusOffset));
  return {.copies = fault.kind == Fault::kReplyTwice ? 2U : 1U, .bytes = std::move(reply)};
}

void Lies::TouchPacket(World& world, Datagram& packet, const Fault& fault) {
  uint32_t number = fault.kind == Fault::kPacketNumber ? fault.value : ReadU16(packet, wire::kSequenceOffset);
  if (repeatedPacket_ != 0) number = repeatedPacket_;
  WriteU16(packet, wire::kSequenceOffset, static_cast<uint16_t>(number));
  number &= wire::kMaxPacketNumber;
  if (!sentPackets_[number]) lastNewPacket_ = world.network.Now();
  sentPackets_[number] = true;
}

}  // namespace media_adapter::fuzz

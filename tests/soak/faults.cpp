#include "tests/soak/faults.h"

#include <algorithm>

#include "protocol/little_endian.h"
#include "protocol/wire.h"

namespace media_adapter::soak {

using sim::Datagram;
using sim::Fate;
using sim::LoggedDatagram;
using wire::Command;

namespace {

constexpr uint32_t kNotConnected = 7, kNoResponse = 253, kInvalidSectorSize = 250;
constexpr uint32_t kStatuses[] = {1,   2,   3,   4,   5,   6,   7,   8,   9,   49,  20,  236, 238,        239,
                                  240, 241, 243, 244, 245, 248, 249, 250, 251, 252, 253, 255, 0xFFFFFFFF, 0x80000000};
constexpr size_t kDamages = 6, kForeigners = 12;
constexpr size_t kData = wire::kHeaderSize + wire::kItemHeaderSize;  // of a read reply or a packet

bool Is(const Datagram& bytes, Command command, uint8_t plus = 0) {
  return bytes[wire::kCommandOffset] == static_cast<uint8_t>(command) + plus;
}

}  // namespace

Faults::Faults(sim::SimWorld& world, simulator::DeviceModel& device, Random& random)
    : world_(world), device_(device), random_(random) {
  world_.fate = [this](const LoggedDatagram& datagram, size_t) { return Touch(datagram); };
}

void Faults::Change() {
  Stop();
  if (random_.OneIn(3)) return;
  constexpr double kLoss[] = {0, 0, 0.01, 0.05, 0.3};
  constexpr double kOthers[] = {0, 0, 0.05, 0.3};
  world_.random = {.loss = random_.Of(kLoss), .duplication = random_.Of(kOthers), .reordering = random_.Of(kOthers)};
  const auto oneIn = [&] {
    constexpr size_t kRates[] = {0, 0, 0, 0, 20, 80, 300};
    return random_.Of(kRates);
  };
  mix_ = {.areOn = true,
          .status = oneIn(),
          .refusal = oneIn(),
          .size = oneIn(),
          .damage = oneIn(),
          .foreign = oneIn() / 4,
          .restart = oneIn() * 2,
          .writesUntilDeath = random_.OneIn(5) ? 1 + random_.Below(40) : 0};
}

void Faults::Stop() {
  if (!mix_.areOn) return;
  mix_ = {};
  world_.random = {};
  isDead_ = false;
  device_.Restart();
}

void Faults::BeginStep() {
  requests_ = 0;
  explained_ = {kNoResponse};
}

std::string Faults::Text() const {
  if (!AreOn()) return "sound";
  std::string text = "loss " + std::to_string(world_.random.loss).substr(0, 4) + " double " +
                     std::to_string(world_.random.duplication).substr(0, 4) + " reorder " +
                     std::to_string(world_.random.reordering).substr(0, 4);
  const auto add = [&](const char* name, size_t value) {
    if (value != 0) text += " " + (name + (" " + std::to_string(value)));
  };
  add("status", mix_.status);
  add("refusal", mix_.refusal);
  add("size", mix_.size);
  add("damage", mix_.damage);
  add("foreign", mix_.foreign);
  add("restart", mix_.restart);
  add("death", mix_.writesUntilDeath);
  return isDead_ ? text + " dead" : text;
}

Fate Faults::Touch(const LoggedDatagram& datagram) {
  if (datagram.fromLibrary) ++requests_;
  if (!AreOn()) return {};
  Fate fate = datagram.fromLibrary ? TouchRequest(datagram) : TouchReply(datagram);
  if (isDead_) return {.copies = 0};
  if (fate.copies != 0 && random_.OneIn(mix_.damage)) {
    if (!fate.bytes) fate.bytes = datagram.bytes;
    Damage(*fate.bytes, random_.Below(kDamages));
  }
  return fate;
}

Fate Faults::TouchRequest(const LoggedDatagram& request) {
  if (Dies(request)) return {};  // of the write that it has just done, only the reply is lost
  if (random_.OneIn(mix_.restart)) {
    device_.Restart();
    explained_.insert(kNotConnected);
  }
  if (Is(request.bytes, Command::TransferAcknowledgement) || !random_.OneIn(mix_.refusal)) return {};
  Refuse(request);
  return {.copies = 0};
}

// Counts the writes. The last one is done or not.
bool Faults::Dies(const LoggedDatagram& request) {
  if (mix_.writesUntilDeath == 0 || isDead_ || !Is(request.bytes, Command::RFAWriteData)) return false;
  if (--mix_.writesUntilDeath != 0) return false;
  isDead_ = true;
  if (random_.OneIn(2)) device_.OnDatagram(request.bytes, request.sender, world_.Now());
  return true;
}

// The device answers with a status and does nothing.
void Faults::Refuse(const LoggedDatagram& request) {
  const bool isTransfer = Is(request.bytes, Command::RFAStartTransfer);
  Datagram reply(request.bytes.begin(), request.bytes.begin() + wire::kHeaderSize);
  ++reply[wire::kCommandOffset];
  reply[wire::kSenderOffset] = wire::kDeviceSender;
  if (isTransfer) WriteU16(reply, wire::kSequenceOffset, 1);
  WriteU16(reply, wire::kLengthOffset, wire::kHeaderSize);
  std::ranges::copy(device_.Identity().mac, reply.begin() + wire::kSourceMacOffset);
  WriteU32(reply, wire::kStatusOffset, AnyStatus());
  world_.Inject(request.receiver, std::move(reply), world_.latency);
}

Fate Faults::TouchReply(const LoggedDatagram& reply) {
  Fate fate;
  if (random_.OneIn(mix_.foreign)) SendForeign(reply);
  if (random_.OneIn(mix_.status)) {
    fate.bytes = reply.bytes;
    WriteU32(*fate.bytes, wire::kStatusOffset, AnyStatus());
  } else if (random_.OneIn(mix_.size)) {
    fate.bytes = OfAnotherSize(reply.bytes);
  }
  return fate;
}

// Success with less than what was asked for, or with something behind it.
Datagram Faults::OfAnotherSize(Datagram reply) {
  if (Is(reply, Command::RFAConnect, 1) && random_.OneIn(4)) {
    explained_.insert(kInvalidSectorSize);
    reply.resize(wire::kHeaderSize);
  } else if (reply.size() > kData && (Is(reply, Command::RFAReadData, 1) || Is(reply, Command::TransferData))) {
    const size_t room = Is(reply, Command::TransferData) ? wire::kPacketSize : 2 * sim::Datagram::size_type{512};
    const size_t size = random_.OneIn(2) ? room : random_.Below(reply.size() - kData);
    reply.resize(size == 0 ? wire::kHeaderSize : kData + size, 0xA5);
    if (size != 0) WriteU16(reply, kData - 2, static_cast<uint16_t>(size));
  }
  WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(reply.size()));
  return reply;
}

// A copy with other bytes that the library must not take: from somebody else, or not an answer to its request.
void Faults::SendForeign(const LoggedDatagram& model) {
  sim::Endpoint sender = model.sender;
  Datagram bytes = model.bytes;
  for (size_t i = kData; i < bytes.size(); ++i) bytes[i] ^= 0x5A;
  const size_t kind = random_.Below(kForeigners);
  // Every packet of a stream is taken, whatever its number.
  const bool isPacket = Is(bytes, Command::TransferData);
  if (kind < kDamages) {
    Damage(bytes, kind);
  } else if (kind == 6) {
    sender.address[3] ^= 0x40;
  } else if (kind == 7 || (kind == 8 && isPacket)) {
    ++sender.port;
  } else if (kind == 8) {
    bytes[wire::kSequenceOffset + 1] ^= 0x20;
  } else if (kind == 9) {
    bytes[wire::kSourceMacOffset + 5] ^= 0x40;
  } else if (kind == 10) {
    bytes[wire::kCommandOffset] ^= 0x40;
  } else {  // a test report
    bytes.resize(wire::kHeaderSize + 8);
    bytes[wire::kCommandOffset] = static_cast<uint8_t>(Command::TestReport);
    WriteU16(bytes, wire::kLengthOffset, static_cast<uint16_t>(bytes.size()));
    WriteU32(bytes, wire::kHeaderSize, 0x00040D0F);
  }
  world_.Inject(sender, std::move(bytes), random_.Below(4) * world_.latency / 2);
}

void Faults::Damage(Datagram& bytes, size_t kind) {
  if (kind == 0) bytes.resize(random_.Below(bytes.size()));
  if (kind == 1) bytes.resize(bytes.size() + 1 + random_.Below(300));
  if (kind == 2 && bytes.size() > wire::kLengthOffset) bytes[wire::kLengthOffset] ^= 0x10;
  const size_t fields[] = {wire::kMagicOffset + 1, wire::kFormatOffset, wire::kSenderOffset};
  if (kind >= 3) bytes[fields[kind - 3]] ^= 3;
}

uint32_t Faults::AnyStatus() {
  const uint32_t status = random_.Of(kStatuses);
  explained_.insert(status);
  return status;
}

}  // namespace media_adapter::soak

#include "fuzz/lying_device.h"

#include <algorithm>

#include "protocol/little_endian.h"
#include "protocol/wire.h"

namespace media_adapter::fuzz {
namespace {

using wire::Command;

constexpr size_t kSectorBytes = sizeof(Sector);
constexpr size_t kMaxBody = 1900;   // some of it longer than what the library takes
constexpr size_t kMaxStream = 128;  // sectors
constexpr std::chrono::seconds kMaxStandstill{100};

// The places of the values in a request with a sector, a count and data.
constexpr size_t kSector = wire::kHeaderSize + 4;
constexpr size_t kCount = wire::kHeaderSize + 12;
constexpr size_t kData = wire::kHeaderSize + 18;
constexpr size_t kMissing = wire::kHeaderSize + 4;

size_t PutItem(std::span<uint8_t> body, size_t at, uint8_t index, size_t size) {
  body[at] = wire::kFileAccessClass;
  body[at + 1] = index;
  WriteU16(body, at + 2, static_cast<uint16_t>(size));
  return at + wire::kItemHeaderSize;
}

bool Is(const Fault* fault, Fault::Kind kind) { return fault != nullptr && fault->kind == kind; }

}  // namespace

Fault Fault::From(Input& input) {
  Fault fault{.after = input.Byte(), .kind = static_cast<Kind>(input.Byte() % kKinds)};
  if (fault.kind == kStatus || fault.kind == kStatusAfter) fault.value = input.Status();
  if (fault.kind == kSize) fault.value = input.U16() % 1100;
  if (fault.kind == kRepeatPacket || fault.kind == kPacketNumber) fault.value = input.U16();
  if (fault.kind == kOtherGeometry) fault.value = input.U32();
  return fault;
}

bool Device::HasLies() const {
  return std::ranges::any_of(faults_, [](const Fault& fault) { return fault.IsLie(); });
}

void Device::OnRequest(std::span<const uint8_t> request) {
  if (budget_ == 0) return;
  --budget_;
  const Fault* fault = nullptr;
  if (nextFault_ < faults_.size() && sinceFault_++ >= faults_[nextFault_].after) {
    fault = &faults_[nextFault_++];
    sinceFault_ = 0;
  }
  if (Is(fault, Fault::kDie)) budget_ = 0;
  if (Is(fault, Fault::kDropWrites)) dropsWrites_ = true;
  if (Is(fault, Fault::kDie) || Is(fault, Fault::kLoseRequest)) return;
  if (Is(fault, Fault::kStatus)) return Send(request, fault->value, {}, nullptr);
  Answer(request, fault);
}

void Device::Answer(std::span<const uint8_t> request, const Fault* fault) {
  switch (static_cast<Command>(request[wire::kCommandOffset])) {
    case Command::RFAConnect:
      return AnswerConnection(request, fault);
    case Command::RFAReadData:
      return AnswerRead(request, fault);
    case Command::RFAWriteData:
      return AnswerWrite(request, fault);
    case Command::RFAStartTransfer:
      return StartStream(request, fault);
    case Command::TransferAcknowledgement:
      return ContinueStream(request, fault);
    default:
      return Send(request, 0, {}, fault);
  }
}

void Device::AnswerConnection(std::span<const uint8_t> request, const Fault* fault) {
  std::array<uint8_t, 16> body{};
  WriteU32(body, PutItem(body, 0, wire::kLastSectorIndex, 4),
           Is(fault, Fault::kOtherGeometry) ? fault->value : lastSector_);
  WriteU32(body, PutItem(body, 8, wire::kSectorSizeIndex, 4), kSectorBytes);
  Send(request, 0, body, fault);
}

void Device::AnswerRead(std::span<const uint8_t> request, const Fault* fault) {
  const size_t asked = ReadU16(request, kCount) * kSectorBytes;
  const size_t size = Is(fault, Fault::kSize) ? fault->value : asked;
  std::array<uint8_t, kMaxBody> body{};
  size_t end = PutItem(body, 0, wire::kDataIndex, size) + size;
  disk_.Read(ReadU32(request, kSector), std::span(body).subspan(wire::kItemHeaderSize, size));
  if (Is(fault, Fault::kTwoItems)) {
    const size_t place = PutItem(body, end, wire::kDataIndex, size / 3);
    CopyBytes(std::span(body).subspan(wire::kItemHeaderSize, size / 3), std::span(body).subspan(place));
    end = place + size / 3;
  }
  Send(request, 0, std::span(body).first(Is(fault, Fault::kNoItem) ? 0 : end), fault);
}

void Device::AnswerWrite(std::span<const uint8_t> request, const Fault* fault) {
  const bool isKept = !dropsWrites_ && !Is(fault, Fault::kDropWrite);
  const size_t size = ReadU16(request, kCount) * kSectorBytes;
  if (request.size() != kData + size) Breach("a write of another size than it says", request.size());
  disk_.Write(ReadU32(request, kSector), request.subspan(kData), isKept);
  Send(request, 0, {}, fault);
}

// The sectors behind the first one, along the chain of its cluster.
void Device::StartStream(std::span<const uint8_t> request, const Fault* fault) {
  const Geometry& volume = disk_.Volume();
  const uint64_t first = ReadU32(request, kSector);
  stream_.clear();
  sentPackets_.assign(wire::kMaxPacketNumber + 1U, false);
  repeatedPacket_ = 0;
  uint64_t cluster = first < volume.data ? 0 : (first - volume.data) / volume.sectorsPerCluster + 2;
  while (stream_.size() < kMaxStream && cluster >= 2 && cluster <= volume.lastCluster) {
    for (uint32_t i = 0; i < volume.sectorsPerCluster; ++i) stream_.push_back(disk_.SectorOf(cluster) + i);
    cluster = disk_.FatEntry(cluster) & (volume.isFat32 ? 0x0FFFFFFF : 0xFFFF);
  }
  lastNewPacket_ = network.now;
  for (uint32_t number = 1; number <= wire::kPacketsPerBlock; ++number) {
    SendPacket(request, number, number == 1 ? fault : nullptr);
  }
}

void Device::ContinueStream(std::span<const uint8_t> request, const Fault* fault) {
  if (network.now - lastNewPacket_ > kMaxStandstill) Breach("a stream that stands still goes on");
  if (Is(fault, Fault::kRepeatPacket)) repeatedPacket_ = fault->value;
  const uint32_t number = ReadU16(request, wire::kSequenceOffset) & wire::kSequenceMask;
  if (repeatedPacket_ != 0) return SendPacket(request, repeatedPacket_, fault);
  if (request.size() == wire::kHeaderSize) {
    for (uint32_t i = 1; i <= wire::kPacketsPerBlock; ++i) SendPacket(request, number + i, i == 1 ? fault : nullptr);
    return;
  }
  for (size_t at = kMissing; at + 2 <= request.size(); at += 2) SendPacket(request, ReadU16(request, at), fault);
}

void Device::SendPacket(std::span<const uint8_t> request, uint32_t number, const Fault* fault) {
  const uint32_t block = (number - 1) / wire::kPacketsPerBlock;
  const uint32_t inBlock = (number - 1) % wire::kPacketsPerBlock * wire::kPacketSize;
  const size_t offset = size_t{block} * wire::kBlockSize + inBlock;
  if (number == 0 || offset >= stream_.size() * kSectorBytes) return;
  size_t size =
      std::min<size_t>({wire::kPacketSize, wire::kBlockSize - inBlock, stream_.size() * kSectorBytes - offset});
  std::array<uint8_t, wire::kItemHeaderSize + wire::kPacketSize> body{};
  for (size_t done = 0; done < size;) {
    const size_t inSector = (offset + done) % kSectorBytes;
    const size_t count = std::min(kSectorBytes - inSector, size - done);
    const Sector& sector = disk_.At(stream_[(offset + done) / kSectorBytes]);
    CopyBytes(std::span(sector).subspan(inSector, count), std::span(body).subspan(wire::kItemHeaderSize + done));
    done += count;
  }
  if (Is(fault, Fault::kSize)) size = std::min<size_t>(fault->value, wire::kPacketSize);
  if (Is(fault, Fault::kPacketNumber)) number = fault->value;
  if (!sentPackets_[number & wire::kMaxPacketNumber]) lastNewPacket_ = network.now;
  sentPackets_[number & wire::kMaxPacketNumber] = true;
  PutItem(body, 0, wire::kDataIndex, size);
  std::array<uint8_t, wire::kHeaderSize> header{};
  CopyBytes(request.first(header.size()), header);
  WriteU16(header, wire::kSequenceOffset, static_cast<uint16_t>(number));
  header[wire::kCommandOffset] = static_cast<uint8_t>(Command::TransferAcknowledgement);
  Send(header, 0, std::span(body).first(wire::kItemHeaderSize + size), fault);
}

void Device::Send(std::span<const uint8_t> request, uint32_t status, std::span<const uint8_t> body,
                  const Fault* fault) {
  if (Is(fault, Fault::kLoseReply)) return;
  if (Is(fault, Fault::kStatusAfter)) status = fault->value;
  // A packet of a stream is an answer with the number 41, to its start as to each acknowledgement.
  const auto command = static_cast<Command>(request[wire::kCommandOffset]);
  const bool isPacket = command == Command::TransferAcknowledgement || command == Command::RFAStartTransfer;
  const auto code =
      isPacket ? static_cast<uint8_t>(Command::TransferData) : static_cast<uint8_t>(request[wire::kCommandOffset] + 1);
  std::array<uint8_t, wire::kHeaderSize + kMaxBody> reply;
  PutReplyHeader(request, code, status, body.size(), reply);
  CopyBytes(body, std::span(reply).subspan(wire::kHeaderSize));
  const auto whole = std::span(reply).first(wire::kHeaderSize + body.size());
  Deliver(whole);
  if (Is(fault, Fault::kReplyTwice)) Deliver(whole);
}

}  // namespace media_adapter::fuzz

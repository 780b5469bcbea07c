#include "simulator/file_stream.h"

#include <algorithm>

#include "protocol/little_endian.h"

namespace media_adapter::simulator {
namespace {

constexpr uint64_t kPacketsPerBlock = wire::kPacketsPerBlock;
constexpr uint32_t kSectorsPerBlock = wire::kBlockSize / kSectorSize;
constexpr uint8_t kDataCommand = static_cast<uint8_t>(wire::Command::TransferData);
constexpr Time kShortestInterval = std::chrono::milliseconds{1};

uint64_t PacketsOf(size_t bytes) { return (bytes + wire::kPacketSize - 1) / wire::kPacketSize; }

uint64_t GroupEnd(uint64_t packet) { return (packet + kPacketsPerBlock - 1) / kPacketsPerBlock * kPacketsPerBlock; }

}  // namespace

FileStream::FileStream(Storage& storage, const StreamOrigin& origin, const platform::MacAddress& device,
                       const platform::MacAddress& host, StreamLimits limits)
    : storage_(storage),
      origin_(origin),
      device_(device),
      host_(host),
      limits_{std::max(limits.repeatInterval, kShortestInterval), limits.repeatLimit},
      chain_(storage, origin.startSector) {}

void FileStream::Start(Time now, std::vector<Outgoing>& out) {
  everSent_ = std::max(everSent_, sent_);
  if (blocksBuilt_ != 0) chain_ = FatChain(storage_, origin_.startSector);
  acknowledged_ = sent_ = blocksBuilt_ = 0;
  chainEnded_ = isOver_ = false;
  HeardFromHost(now);
  FillWindow(out);
}

void FileStream::Acknowledge(uint16_t number, Time now, std::vector<Outgoing>& out) {
  HeardFromHost(now);
  Advance(AbsoluteNumber(number), out);
}

void FileStream::Resend(uint16_t number, std::span<const uint8_t> missing, Time now, std::vector<Outgoing>& out) {
  HeardFromHost(now);
  const uint64_t groupEnd = AbsoluteNumber(number);
  // What is not listed of this group stays unacknowledged: only its repetition makes the host say again that the group
  // is complete, should that acknowledgement be lost.
  if (groupEnd >= kPacketsPerBlock) Advance(groupEnd - kPacketsPerBlock, out);
  for (size_t at = 0; at + 2 <= missing.size(); at += 2) {
    const uint64_t packet = AbsoluteNumber(ReadU16(missing, at));
    if (packet > acknowledged_ && packet <= sent_) Send(packet, out);
  }
}

void FileStream::OnTime(Time now, std::vector<Outgoing>& out) {
  if (isOver_ || now < nextRepeat_) return;
  if (++repeats_ > limits_.repeatLimit) {
    isOver_ = true;
    return;
  }
  nextRepeat_ = now + limits_.repeatInterval;
  for (uint64_t packet = acknowledged_ + 1; packet <= sent_; ++packet) Send(packet, out);
}

// The packet that a number of 14 bits means: the latest one, up to the end of the last group sent. 0 when there is
// none.
uint64_t FileStream::AbsoluteNumber(uint16_t number) const {
  const uint64_t latest = GroupEnd(std::max(sent_, everSent_));
  const uint64_t back = (latest - number) & wire::kSequenceMask;
  return back < latest ? latest - back : 0;
}

void FileStream::Advance(uint64_t acknowledged, std::vector<Outgoing>& out) {
  if (acknowledged <= acknowledged_) return;
  // After a new start the host may be far ahead of what has been sent again.
  while (!chainEnded_ && (blocksBuilt_ + 1) * kPacketsPerBlock <= acknowledged) SkipBlock();
  acknowledged_ = std::min(acknowledged, sent_);
  FillWindow(out);
  isOver_ = chainEnded_ && acknowledged_ == sent_;
}

void FileStream::FillWindow(std::vector<Outgoing>& out) {
  while (!chainEnded_ && blocksBuilt_ < acknowledged_ / kPacketsPerBlock + kBlocksAhead) {
    const uint64_t packets = BuildBlock(window_[blocksBuilt_ % kBlocksAhead]);
    if (packets != 0) ++blocksBuilt_;
    for (uint64_t i = 0; i < packets; ++i) Send(++sent_, out);
  }
}

// Passes over a block that the host has already. Its data is not read.
void FileStream::SkipBlock() {
  uint32_t sectors = 0;
  while (sectors < kSectorsPerBlock && !chainEnded_) {
    const auto run = chain_.Next(kSectorsPerBlock - sectors);
    chainEnded_ = !run || run->count == 0;
    if (run) sectors += run->count;
  }
  sent_ += PacketsOf(size_t{sectors} * kSectorSize);
  if (sectors != 0) ++blocksBuilt_;
}

// Bytes read into `data`, fewer than its size in the chain's last block, 0 at its end; none when the storage failed.
std::optional<size_t> FileStream::ReadBlock(std::span<uint8_t, wire::kBlockSize> data) {
  size_t size = 0;
  while (size < data.size()) {
    const auto run = chain_.Next(static_cast<uint32_t>((data.size() - size) / kSectorSize));
    if (!run) return std::nullopt;
    if (run->count == 0) {
      chainEnded_ = true;
      break;
    }
    const size_t bytes = size_t{run->count} * kSectorSize;
    if (!storage_.Read(run->sector, data.subspan(size, bytes))) return std::nullopt;
    size += bytes;
  }
  return size;
}

// Builds the next block's packets and returns their number: three, fewer in the chain's last block, 0 at its end. A
// block that cannot be read becomes one packet that says so, without data, and the stream's last one.
uint64_t FileStream::BuildBlock(Block& block) {
  std::array<uint8_t, wire::kBlockSize> data;
  const auto size = ReadBlock(data);
  if (!size) {
    chainEnded_ = true;
    block[0] = BeginPacket(0);
    FinishDatagram(block[0], DeviceStatus::StorageFailed);
    return 1;
  }
  const uint64_t packets = PacketsOf(*size);
  for (size_t i = 0; i < packets; ++i) {
    const size_t at = i * wire::kPacketSize;
    const auto part = std::span(data).subspan(at, std::min<size_t>(wire::kPacketSize, *size - at));
    block[i] = BeginPacket(i);
    std::ranges::copy(part, AppendItem(block[i], wire::kFileAccessClass, wire::kDataIndex, part.size()).begin());
    FinishDatagram(block[i], DeviceStatus::Success);
  }
  return packets;
}

// The header of packet `place` (0 to 2) of the block that is being built.
Datagram FileStream::BeginPacket(uint64_t place) const {
  const uint64_t number = blocksBuilt_ * kPacketsPerBlock + place + 1;
  return BeginDatagram(kDataCommand, static_cast<uint16_t>(number & wire::kSequenceMask), device_, host_,
                       wire::kItemHeaderSize + wire::kPacketSize);
}

void FileStream::Send(uint64_t packet, std::vector<Outgoing>& out) const {
  const uint64_t position = packet - 1;
  const Block& block = window_[position / kPacketsPerBlock % kBlocksAhead];
  out.push_back({origin_.receiver, block[static_cast<size_t>(position % kPacketsPerBlock)]});
}

void FileStream::HeardFromHost(Time now) {
  repeats_ = 0;
  nextRepeat_ = now + limits_.repeatInterval;
}

}  // namespace media_adapter::simulator

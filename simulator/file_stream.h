// One streamed transfer of a device: data packets in blocks of 4096 bytes, three packets a block, two blocks at most
// ahead of the host's acknowledgements. The device model owns at most one and feeds it acknowledgements and time.
//
// Packets are counted from 1 without a limit; the number on the wire is the low 14 bits. Block b (from 0) holds the
// packets 3b+1 to 3b+3. An unacknowledged packet is repeated byte for byte.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "protocol/wire.h"
#include "simulator/datagrams.h"
#include "simulator/fat_chain.h"

namespace media_adapter::simulator {

struct StreamLimits {
  Time repeatInterval{};
  uint32_t repeatLimit = 0;  // repeats without any acknowledgement before the stream ends
};

// Who receives a stream, and of what. Equal for a transfer request and its retransmission.
struct StreamOrigin {
  platform::Endpoint receiver;
  uint16_t sequence = 0;
  uint32_t startSector = 0;
  bool operator==(const StreamOrigin&) const = default;
};

class FileStream {
 public:
  FileStream(Storage& storage, const StreamOrigin& origin, const platform::MacAddress& device,
             const platform::MacAddress& host, StreamLimits limits);

  // Sends the first two blocks. The stream may start again from packet 1; acknowledgements of packets that it had sent
  // before are still good then.
  void Start(Time now, std::vector<Outgoing>& out);

  // An acknowledgement of every packet up to `number`.
  void Acknowledge(uint16_t number, Time now, std::vector<Outgoing>& out);
  // The host misses the packets of `missing` (u16 each) of the group that ends with `number`, and has all before it.
  void Resend(uint16_t number, std::span<const uint8_t> missing, Time now, std::vector<Outgoing>& out);
  // Repeats what stays unacknowledged, when it is time.
  void OnTime(Time now, std::vector<Outgoing>& out);

  Time NextTime() const { return nextRepeat_; }
  // Everything was acknowledged, or the host has not been heard for too many repeats.
  bool IsOver() const { return isOver_; }
  const StreamOrigin& Origin() const { return origin_; }

 private:
  static constexpr uint32_t kBlocksAhead = 2;
  using Block = std::array<Datagram, wire::kPacketsPerBlock>;  // of its packets as sent

  uint64_t AbsoluteNumber(uint16_t number) const;
  void Advance(uint64_t acknowledged, std::vector<Outgoing>& out);
  void FillWindow(std::vector<Outgoing>& out);
  void SkipBlock();
  std::optional<size_t> ReadBlock(std::span<uint8_t, wire::kBlockSize> data);
  size_t BuildBlock(Block& block);
  Datagram BeginPacket(size_t place) const;
  void Send(uint64_t packet, std::vector<Outgoing>& out) const;
  void HeardFromHost(Time now);

  Storage& storage_;
  StreamOrigin origin_;
  platform::MacAddress device_;
  platform::MacAddress host_;
  StreamLimits limits_;

  FatChain chain_;
  std::array<Block, kBlocksAhead> window_;  // block b stands at b mod 2
  uint64_t acknowledged_ = 0;               // packets up to here need no repeat
  uint64_t sent_ = 0;                       // the last packet sent since the start
  uint64_t everSent_ = 0;                   // the last packet sent before any new start, too
  uint64_t blocksBuilt_ = 0;
  bool chainEnded_ = false;
  bool isOver_ = false;
  uint32_t repeats_ = 0;
  Time nextRepeat_{};
};

}  // namespace media_adapter::simulator

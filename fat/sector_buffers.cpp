#include "fat/sector_buffers.h"

#include <algorithm>
#include <memory>
#include <new>

namespace media_adapter {
namespace {

// Made on first use, so that it outlives the object whose destruction stops the library.
std::unique_ptr<uint8_t[]>& Block() {
  static std::unique_ptr<uint8_t[]> block;
  return block;
}

}  // namespace

SessionValues sessionValues;
FatSectorCache fatSectorCache;

bool AllocateSectorBuffers(BufferKind kind) {
  FreeSectorBuffers();
  const size_t sectors = kind == BufferKind::WithFatCache ? 3 : 2;
  Block().reset(new (std::nothrow) uint8_t[sectors * kSectorSize]{});
  if (!Block()) return false;
  const std::span<uint8_t> block(Block().get(), sectors * kSectorSize);
  SetReadBuffer(block.first(2 * kSectorSize));
  fatSectorCache = {.data = block.subspan(2 * kSectorSize)};
  return true;
}

void FreeSectorBuffers() {
  SetReadBuffer({});
  fatSectorCache = {};
  Block().reset();
}

std::span<uint8_t> WorkingSector() { return {Block().get(), kSectorSize}; }

std::span<uint8_t> SecondSector() { return {Block().get() + kSectorSize, kSectorSize}; }

std::span<uint8_t> WorkingPair() { return {Block().get(), 2 * kSectorSize}; }

StatusCode ReadSector(uint32_t sector) { return RFAReadData(sector, 1, sessionValues); }

StatusCode WriteSector(uint32_t sector) { return WriteSectorFrom(sector, WorkingSector()); }

StatusCode WriteSectorFrom(uint32_t sector, std::span<const uint8_t> data) {
  return RFAWriteData(sector, 1, data, sessionValues);
}

StatusCode ZeroSectors(uint32_t first, uint32_t count) {
  std::ranges::fill(WorkingPair(), uint8_t{0});
  for (uint32_t done = 0; done < count; done += kMaxSectorsPerRequest) {
    const uint32_t now = std::min(count - done, kMaxSectorsPerRequest);
    const auto zeros = WorkingPair().first(now * kSectorSize);
    if (const StatusCode status = RFAWriteData(first + done, now, zeros, sessionValues); status != MEDIA_ADAPTER_OK) {
      return status;
    }
  }
  return MEDIA_ADAPTER_OK;
}

}  // namespace media_adapter

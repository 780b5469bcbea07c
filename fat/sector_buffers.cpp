#include "fat/sector_buffers.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "fat/volume.h"

namespace media_adapter {
namespace {

struct RequestMemory {
  std::unique_ptr<uint8_t[]> sectors;
  std::vector<uint32_t> walked;  // ascending
};

// A plain pointer: nothing destroys it behind a worker that could not be stopped.
RequestMemory* memory = nullptr;

}  // namespace

SessionValues sessionValues;
FatSectorCache fatSectorCache;

bool AllocateSectorBuffers(BufferKind kind) {
  FreeSectorBuffers();
  const size_t sectors = kind == BufferKind::WithFatCache ? 3 : 2;
  auto fresh = std::unique_ptr<RequestMemory>(new (std::nothrow) RequestMemory);
  if (fresh) fresh->sectors.reset(new (std::nothrow) uint8_t[sectors * kSectorSize]{});
  if (!fresh || !fresh->sectors) return false;
  memory = fresh.release();
  const std::span<uint8_t> block(memory->sectors.get(), sectors * kSectorSize);
  SetReadBuffer(block.first(2 * kSectorSize));
  fatSectorCache = {.data = block.subspan(2 * kSectorSize)};
  return true;
}

void FreeSectorBuffers() {
  SetReadBuffer({});
  fatSectorCache = {};
  delete std::exchange(memory, nullptr);
}

std::span<uint8_t> WorkingSector() { return {memory->sectors.get(), kSectorSize}; }

std::span<uint8_t> SecondSector() { return {memory->sectors.get() + kSectorSize, kSectorSize}; }

std::span<uint8_t> WorkingPair() { return {memory->sectors.get(), 2 * kSectorSize}; }

void NoteWalked(uint32_t cluster) {
  const auto place = std::ranges::lower_bound(memory->walked, cluster);
  if (place == memory->walked.end() || *place != cluster) memory->walked.insert(place, cluster);
}

bool IsWalked(uint32_t cluster) { return std::ranges::binary_search(memory->walked, cluster); }

StatusCode ReadSector(uint32_t sector) { return ReadSectors(sector, 1); }

StatusCode ReadSectors(uint32_t sector, uint32_t count) {
  const StatusCode status = RFAReadData(sector, count, sessionValues);
  // What a short reply left out must not be made up from older bytes.
  const bool isShort = status == MEDIA_ADAPTER_OK && ReadDataSize() < size_t{count} * kSectorSize;
  return isShort ? StatusCode{MEDIA_ADAPTER_NO_RESPONSE} : status;
}

StatusCode WriteSector(uint32_t sector) { return WriteSectorFrom(sector, WorkingSector()); }

StatusCode WriteSectorFrom(uint32_t sector, std::span<const uint8_t> data) {
  // What such a volume calls its root directory may be anything, its boot sector for one.
  if (LastCluster() < kFirstCluster) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
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

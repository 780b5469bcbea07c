// The memory of one file request: two working sectors, through which everything is read and written, and one cached
// sector of the FAT. And the session in whose name the file system reads and writes.
#pragma once

#include <cstdint>
#include <span>

#include "protocol/sector_access.h"
#include "protocol/session.h"
#include "protocol/status_code.h"

namespace media_adapter {

// The end of a cluster chain, and of a walk along one. Never a cluster number or a status.
inline constexpr uint32_t kEnd = 0xFFFFFFFF;

// The session of the current file request.
extern SessionValues sessionValues;

enum class BufferKind : uint8_t { WithFatCache, WithoutFatCache };

// Replaces the buffers by new ones; the FAT cache is empty. False when there is no memory: there are no buffers then.
bool AllocateSectorBuffers(BufferKind kind);
void FreeSectorBuffers();

// Each is kSectorSize bytes; WorkingPair is both working sectors together.
std::span<uint8_t> WorkingSector();
std::span<uint8_t> SecondSector();
std::span<uint8_t> WorkingPair();

// One sector of the first FAT. Changed entries are in it alone until it is written back.
struct FatSectorCache {
  uint32_t cachedFatSector = kEnd;  // counted within the FAT; kEnd: the cache is empty
  std::span<uint8_t> data;
};
extern FatSectorCache fatSectorCache;

// One sector to, or one or two from, the working area; `data` from elsewhere. Each returns the exchange's status.
StatusCode ReadSector(uint32_t sector);
StatusCode WriteSector(uint32_t sector);
StatusCode WriteSectorFrom(uint32_t sector, std::span<const uint8_t> data);

// Writes zeros to `count` sectors from `first` on, two at a time, and leaves the working area zeroed.
StatusCode ZeroSectors(uint32_t first, uint32_t count);

}  // namespace media_adapter

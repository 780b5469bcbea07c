// The memory of one file request: two working sectors, through which everything is read and written, one cached sector
// of the FAT, and the clusters that it walks. And the session in whose name the file system reads and writes.
#pragma once

#include <cstdint>
#include <span>

#include "protocol/sector_access.h"
#include "protocol/session.h"
#include "protocol/status_code.h"

namespace media_adapter {

// The end of a cluster chain, where a cluster's number would stand. It never travels as a status.
inline constexpr uint32_t kEnd = 0xFFFFFFFF;

// The session of the current file request.
extern SessionValues sessionValues;

enum class BufferKind : uint8_t { WithFatCache, WithoutFatCache };

// Replaces the buffers by new ones; the FAT cache is empty, no cluster was walked. False when there is no memory: there
// are no buffers then.
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

// The clusters of the directories that the request has looked into. Nothing may be stored in them as if they were free,
// whatever the FAT says of them.
void NoteWalked(uint32_t cluster);
bool IsWalked(uint32_t cluster);

// Reads one sector, or `count` (1 or 2), into the working area. Returns the exchange's status; 253 when its reply
// brought less than was asked for.
StatusCode ReadSector(uint32_t sector);
StatusCode ReadSectors(uint32_t sector, uint32_t count);

// One sector from the working area, or `data` from elsewhere. Returns the exchange's status; 251 on a volume that holds
// no cluster, which is never written to.
StatusCode WriteSector(uint32_t sector);
StatusCode WriteSectorFrom(uint32_t sector, std::span<const uint8_t> data);

// Writes zeros to `count` sectors from `first` on, two at a time, and leaves the working area zeroed.
StatusCode ZeroSectors(uint32_t first, uint32_t count);

}  // namespace media_adapter

// Which sectors a streamed transfer covers: the cluster chain that the start sector lies in, by the device's own
// partition table, boot sector and first FAT; or, where there is no FAT16 or FAT32 data area, everything up to the
// device's end. Used by the stream; it reads the storage and never writes it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "simulator/storage.h"

namespace media_adapter::simulator {

// What the walk needs to know of a FAT volume. Sector numbers are the device's own.
struct FatGeometry {
  bool isFat32 = false;
  uint32_t fatStart = 0;
  uint32_t firstDataSector = 0;
  uint32_t sectorsPerCluster = 0;
  uint32_t lastCluster = 0;  // bounded by the volume, its FAT and the device
};

struct SectorRun {
  uint32_t sector = 0;
  uint32_t count = 0;
};

class FatChain {
 public:
  FatChain(Storage& storage, uint32_t startSector);

  // The next sectors of the chain, at most `limit`, as far as they follow each other on the device. Count 0 at the
  // chain's end; none when the storage failed. A chain that loops ends after as many clusters as the volume has.
  std::optional<SectorRun> Next(uint32_t limit);

 private:
  std::optional<FatGeometry> FindVolume(uint32_t startSector);
  std::optional<FatGeometry> ReadGeometry(uint32_t bootSector);
  bool StepToNextCluster();
  bool Load(uint32_t sector);

  Storage* storage_;
  std::optional<FatGeometry> volume_;
  uint32_t cluster_ = 0;       // the cluster that `next_` lies in; 0 at the chain's end and without a volume
  uint32_t next_ = 0;          // the next sector to hand out
  uint32_t left_ = 0;          // sectors left in the cluster, or up to the device's end
  uint32_t clustersLeft_ = 0;  // bound of the walk
  bool failed_ = false;
  std::optional<uint32_t> cachedSector_;  // the device's sector that `sector_` holds
  std::array<uint8_t, kSectorSize> sector_{};
};

}  // namespace media_adapter::simulator

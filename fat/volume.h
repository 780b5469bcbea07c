// The mounted volume: where its FAT, its root directory and its clusters lie on the device. Mounting reads sector 0 and
// the boot sector; there is no unmounting, the next mount replaces the geometry.
//
// The on-disk format is Microsoft's FAT (FAT16 and FAT32; boot sector, FAT, directory and long-name entries). Only the
// first FAT copy is ever read or written.
#pragma once

#include <cstdint>

#include "platform/adapters.h"
#include "protocol/status_code.h"

namespace media_adapter {

enum class FatType : uint8_t { Fat16, Fat32 };

inline constexpr uint32_t kFirstCluster = 2;
inline constexpr uint32_t kFat32Root = 2;  // the only root cluster that a mount accepts

// FAT entries from here on are no links: bad-cluster and end-of-chain marks.
inline constexpr uint32_t kFat16Bad = 0xFFF7;
inline constexpr uint32_t kFat32Bad = 0x0FFFFFF7;

// Sector numbers count from the start of the device.
struct FatVolume {
  FatType fatType = FatType::Fat16;
  uint32_t partitionStart = 0;    // the boot sector
  uint8_t sectorsPerCluster = 0;  // not 0 while mounted
  uint32_t fatStartSector = 0;
  uint32_t fatSectors = 0;      // length of the first FAT
  uint32_t rootDirSectors = 0;  // of the FAT16 root directory
  uint32_t rootDirSector = 0;
  uint32_t firstDataSector = 0;  // of cluster 2
  uint32_t clusterCount = 0;     // 0 also when the boot sector leaves no room for any
  platform::MacAddress mountedDevice{};
  bool isMounted = false;
};

extern FatVolume fatVolume;

// Nothing is mounted.
void ResetVolume();

bool IsMounted(const platform::MacAddress& device);

// Mounts the volume of the session's device, which has the hardware address `device`. Returns 0; 248 (signature), 246
// (sectors per cluster), 247 (FAT12), 245 (FAT32 root), 251 (a layout past any sector number), or the status of a
// failed read. After a failure nothing is mounted. A volume without a FAT, or smaller than what comes before its
// clusters, mounts and holds none: it is read, and never written to.
StatusCode MountVolume(const platform::MacAddress& device);

// The highest cluster that the volume, its FAT and the device all hold; below kFirstCluster when they hold none.
uint32_t LastCluster();

inline uint32_t ClusterToSector(uint32_t cluster) {
  return (cluster - kFirstCluster) * fatVolume.sectorsPerCluster + fatVolume.firstDataSector;
}

// What stands for the root directory in a directory reference.
inline uint32_t RootReference() { return fatVolume.fatType == FatType::Fat16 ? 0 : kFat32Root; }

// FAT entries in a sector of the FAT.
inline uint32_t EntriesPerFatSector() { return fatVolume.fatType == FatType::Fat16 ? 256 : 128; }

}  // namespace media_adapter

#include "fat/volume.h"

#include <algorithm>

#include "fat/dir_entry.h"
#include "fat/sector_buffers.h"
#include "protocol/little_endian.h"

namespace media_adapter {
namespace {

// Sector 0, when it is a partition table, and any boot sector.
constexpr size_t kFirstPartitionStart = 454;
constexpr size_t kSignatureOffset = 510;
constexpr uint16_t kSignature = 0xAA55;

// The boot sector.
constexpr size_t kSectorsPerCluster = 13;  // u8
constexpr size_t kReservedSectors = 14;    // u16
constexpr size_t kFatCount = 16;           // u8
constexpr size_t kRootEntries = 17;        // u16
constexpr size_t kTotalSectors16 = 19;     // u16, 0: see kTotalSectors32
constexpr size_t kFatSize16 = 22;          // u16, 0: see kFatSize32
constexpr size_t kTotalSectors32 = 32;     // u32
constexpr size_t kFatSize32 = 36;          // u32
constexpr size_t kRootCluster = 44;        // u32, FAT32

// The cluster count alone decides the FAT type.
constexpr uint32_t kMinFat16Clusters = 4085;
constexpr uint32_t kMinFat32Clusters = 65525;

bool HasSignature() { return ReadU16(WorkingSector(), kSignatureOffset) == kSignature; }

// Takes the geometry from the boot sector, which is in the working sector.
StatusCode ReadGeometry(FatVolume& volume) {
  const std::span<const uint8_t> boot = WorkingSector();
  const uint32_t reserved = ReadU16(boot, kReservedSectors);
  const uint32_t rootBytes = ReadU16(boot, kRootEntries) * uint32_t{kDirEntrySize};
  const uint32_t total16 = ReadU16(boot, kTotalSectors16);
  const uint32_t total = total16 != 0 ? total16 : ReadU32(boot, kTotalSectors32);
  const uint32_t fatSize16 = ReadU16(boot, kFatSize16);
  volume.fatSectors = fatSize16 != 0 ? fatSize16 : ReadU32(boot, kFatSize32);
  volume.rootDirSectors = (rootBytes + kSectorSize - 1) / kSectorSize;
  volume.sectorsPerCluster = boot[kSectorsPerCluster];
  if (volume.sectorsPerCluster == 0) return MEDIA_ADAPTER_INVALID_SECTORS_PER_CLUSTER;

  const uint8_t fatCount = boot[kFatCount];
  const uint32_t allFats = fatCount * volume.fatSectors;
  volume.clusterCount = (total - reserved - allFats - volume.rootDirSectors) / volume.sectorsPerCluster;
  if (volume.clusterCount < kMinFat16Clusters) return MEDIA_ADAPTER_UNSUPPORTED_FAT_TYPE;
  volume.fatType = volume.clusterCount < kMinFat32Clusters ? FatType::Fat16 : FatType::Fat32;
  if (volume.fatType == FatType::Fat32 && ReadU32(boot, kRootCluster) != kFat32Root) {
    return MEDIA_ADAPTER_ROOT_NOT_AT_CLUSTER_2;
  }

  volume.fatStartSector = volume.partitionStart + reserved;
  volume.rootDirSector = volume.fatStartSector + allFats;
  volume.firstDataSector = volume.rootDirSector + volume.rootDirSectors;
  if (!HasSignature()) return MEDIA_ADAPTER_INVALID_SIGNATURE;

  // The sums above must not have wrapped around: no later sector number would be where it seems to be.
  const uint64_t metadata = uint64_t{reserved} + uint64_t{fatCount} * volume.fatSectors + volume.rootDirSectors;
  if (volume.partitionStart + metadata != volume.firstDataSector) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;

  // Without a FAT, or with one that begins at the boot sector, there is nothing that could tell what is free.
  const bool hasFat = reserved != 0 && allFats != 0;
  if (!hasFat || total < metadata) volume.clusterCount = 0;
  return MEDIA_ADAPTER_OK;
}

}  // namespace

FatVolume fatVolume;

void ResetVolume() { fatVolume = {}; }

bool IsMounted(const platform::MacAddress& device) { return fatVolume.isMounted && fatVolume.mountedDevice == device; }

StatusCode MountVolume(const platform::MacAddress& device) {
  ResetVolume();
  FatVolume volume;
  if (const StatusCode status = ReadSector(0); status != MEDIA_ADAPTER_OK) return status;
  if (!HasSignature()) return MEDIA_ADAPTER_INVALID_SIGNATURE;
  volume.partitionStart = ReadU32(WorkingSector(), kFirstPartitionStart);
  if (volume.partitionStart != 0) {
    if (const StatusCode status = ReadSector(volume.partitionStart); status != MEDIA_ADAPTER_OK) return status;
  }
  if (const StatusCode status = ReadGeometry(volume); status != MEDIA_ADAPTER_OK) return status;
  volume.mountedDevice = device;
  volume.isMounted = true;
  fatVolume = volume;
  return MEDIA_ADAPTER_OK;
}

uint32_t LastCluster() {
  const FatVolume& volume = fatVolume;
  if (sessionInfo.lastSector < volume.firstDataSector) return 0;
  const uint64_t ofDevice =
      uint64_t{sessionInfo.lastSector - volume.firstDataSector} / volume.sectorsPerCluster + kFirstCluster;
  const uint64_t ofVolume = uint64_t{volume.clusterCount} + kFirstCluster - 1;
  const uint64_t ofFat = uint64_t{volume.fatSectors} * EntriesPerFatSector() - 1;
  const uint64_t ofType = (volume.fatType == FatType::Fat16 ? kFat16Bad : kFat32Bad) - 1;
  return static_cast<uint32_t>(std::min({ofDevice, ofVolume, ofFat, ofType}));
}

}  // namespace media_adapter

// Clearing the volume in place: the first FAT but for its reserved entries, and the root directory.
#include <algorithm>

#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "fileops/file_operations.h"
#include "protocol/little_endian.h"

namespace media_adapter {
namespace {

constexpr size_t kFat16Reserved = 4;  // bytes of entries 0 and 1
constexpr size_t kFat32Reserved = 8;
constexpr uint32_t kEndMark = 0xFFFFFFFF;

// The FAT sectors that can have entries of clusters up to the device's end, but at most one past the FAT's own length.
uint32_t FatSectorsToClear() {
  const uint32_t dataSectors = sessionInfo.lastSector - fatVolume.firstDataSector;
  const uint32_t fatEntryCount = dataSectors / fatVolume.sectorsPerCluster + kFirstCluster;
  const uint64_t fromDevice = uint64_t{fatEntryCount} / EntriesPerFatSector() + 1;
  return static_cast<uint32_t>(std::min(fromDevice, uint64_t{fatVolume.fatSectors} + 1));
}

StatusCode ClearFirstFatSector() {
  if (const StatusCode status = ReadSector(fatVolume.fatStartSector); status != MEDIA_ADAPTER_OK) return status;
  if (fatVolume.fatType == FatType::Fat16) {
    std::ranges::fill(WorkingSector().subspan(kFat16Reserved), uint8_t{0});
  } else {
    std::ranges::fill(WorkingSector().subspan(kFat32Reserved), uint8_t{0});
    WriteU32(WorkingSector(), kFat32Reserved, kEndMark);  // the root directory keeps its first cluster
  }
  return WriteSector(fatVolume.fatStartSector);
}

StatusCode ClearRootDirectory() {
  if (fatVolume.fatType == FatType::Fat16) return ZeroSectors(fatVolume.rootDirSector, fatVolume.rootDirSectors);
  return ZeroSectors(ClusterToSector(kFat32Root), fatVolume.sectorsPerCluster);
}

}  // namespace

StatusCode FormatVolume() {
  if (LastCluster() < kFirstCluster) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  StatusCode status = ClearFirstFatSector();
  if (status == MEDIA_ADAPTER_OK) status = ZeroSectors(fatVolume.fatStartSector + 1, FatSectorsToClear() - 1);
  if (status == MEDIA_ADAPTER_OK) status = ClearRootDirectory();
  return status;
}

}  // namespace media_adapter

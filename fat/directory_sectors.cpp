#include "fat/directory_sectors.h"

#include "fat/cluster_chain.h"
#include "fat/dir_entry.h"
#include "fat/volume.h"

namespace media_adapter {
namespace {

// The longest directory of the FAT format. It also ends the walk along a chain that loops.
constexpr uint32_t kMaxSlots = 65536;
constexpr uint32_t kMaxSectors = kMaxSlots * kDirEntrySize / kSectorSize;

}  // namespace

DirectorySectors::DirectorySectors(uint32_t dirCluster)
    : isFixedRoot_(fatVolume.fatType == FatType::Fat16 && dirCluster == 0),
      cluster_(dirCluster == 0 ? kFat32Root : dirCluster) {}

bool DirectorySectors::HasNext() const {
  return isFixedRoot_ ? index_ < fatVolume.rootDirSectors : cluster_ != kEnd && index_ < kMaxSectors;
}

StatusCode DirectorySectors::Next() {
  if (isFixedRoot_) {
    sector_ = fatVolume.rootDirSector + index_++;
    return ReadSector(sector_);
  }
  lastCluster_ = cluster_;
  sector_ = ClusterToSector(cluster_) + index_ % fatVolume.sectorsPerCluster;
  return ReadChainSector(cluster_, index_++);
}

StatusCode DirectorySectors::Grow() {
  if (isFixedRoot_ || index_ >= kMaxSectors) return MEDIA_ADAPTER_NO_FREE_DIRECTORY_ENTRIES;
  return GrowDirectory(lastCluster_, cluster_);
}

}  // namespace media_adapter

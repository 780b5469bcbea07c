#include "simulator/fat_chain.h"

#include <algorithm>

#include "protocol/little_endian.h"

namespace media_adapter::simulator {
namespace {

// Fields of sector 0 and of a boot sector, as the FAT on-disk format places them.
constexpr size_t kFirstPartitionOffset = 446, kPartitionRowSize = 16, kPartitionRows = 4, kPartitionStartOffset = 8;
constexpr size_t kSectorsPerClusterOffset = 13, kReservedSectorsOffset = 14, kFatCountOffset = 16;
constexpr size_t kRootEntriesOffset = 17, kTotal16Offset = 19, kFatSize16Offset = 22;
constexpr size_t kTotal32Offset = 32, kFatSize32Offset = 36;
constexpr size_t kSignatureOffset = 510;
constexpr uint16_t kSignature = 0xAA55;

// The number of clusters decides the type: fewer are FAT12, which the host refuses.
constexpr uint64_t kLeastFat16Clusters = 4085, kLeastFat32Clusters = 65525;
constexpr uint64_t kLastFat32Cluster = 0x0FFFFFF6;
constexpr uint32_t kFat32EntryMask = 0x0FFFFFFF;
constexpr uint32_t kRootEntrySize = 32;

}  // namespace

FatChain::FatChain(Storage& storage, uint32_t startSector) : storage_(&storage), next_(startSector) {
  volume_ = FindVolume(startSector);
  if (!volume_) {
    left_ = startSector < storage.SectorCount() ? storage.SectorCount() - startSector : 0;
    return;
  }
  const uint32_t offset = startSector - volume_->firstDataSector;
  cluster_ = 2 + offset / volume_->sectorsPerCluster;
  left_ = volume_->sectorsPerCluster - offset % volume_->sectorsPerCluster;
  clustersLeft_ = volume_->lastCluster - 1;
}

std::optional<SectorRun> FatChain::Next(uint32_t limit) {
  if (left_ == 0 && !StepToNextCluster()) {
    if (failed_) return std::nullopt;
    return SectorRun{};
  }
  SectorRun run{next_, 0};
  do {
    const uint32_t count = std::min(limit - run.count, left_);
    run.count += count;
    next_ += count;
    left_ -= count;
  } while (run.count < limit && StepToNextCluster() && next_ == run.sector + run.count);
  return run;
}

// The volume whose data area holds `startSector`.
std::optional<FatGeometry> FatChain::FindVolume(uint32_t startSector) {
  if (!Load(0) || ReadU16(sector_, kSignatureOffset) != kSignature) return std::nullopt;
  std::array<uint32_t, kPartitionRows + 1> bootSectors{};  // the last one: sector 0 itself
  for (size_t row = 0; row < kPartitionRows; ++row) {
    bootSectors[row] = ReadU32(sector_, kFirstPartitionOffset + row * kPartitionRowSize + kPartitionStartOffset);
  }
  for (const uint32_t bootSector : bootSectors) {
    const auto geometry = ReadGeometry(bootSector);
    if (geometry && startSector >= geometry->firstDataSector &&
        (startSector - geometry->firstDataSector) / geometry->sectorsPerCluster + 2 <= geometry->lastCluster) {
      return geometry;
    }
  }
  return std::nullopt;
}

std::optional<FatGeometry> FatChain::ReadGeometry(uint32_t bootSector) {
  if (bootSector >= storage_->SectorCount() || !Load(bootSector)) return std::nullopt;
  const std::span<const uint8_t> boot = sector_;
  if (ReadU16(boot, kSignatureOffset) != kSignature) return std::nullopt;

  const uint64_t perCluster = boot[kSectorsPerClusterOffset];
  const uint64_t reserved = ReadU16(boot, kReservedSectorsOffset);
  const uint64_t fatSize =
      ReadU16(boot, kFatSize16Offset) != 0 ? ReadU16(boot, kFatSize16Offset) : ReadU32(boot, kFatSize32Offset);
  const uint64_t total =
      ReadU16(boot, kTotal16Offset) != 0 ? ReadU16(boot, kTotal16Offset) : ReadU32(boot, kTotal32Offset);
  const uint64_t rootSectors =
      (uint64_t{ReadU16(boot, kRootEntriesOffset)} * kRootEntrySize + kSectorSize - 1) / kSectorSize;
  const uint64_t overhead = reserved + boot[kFatCountOffset] * fatSize + rootSectors;
  const uint64_t firstData = bootSector + overhead;
  if (perCluster == 0 || reserved == 0 || fatSize == 0 || boot[kFatCountOffset] == 0) return std::nullopt;
  if (total <= overhead || firstData >= storage_->SectorCount()) return std::nullopt;

  const uint64_t clusters = (total - overhead) / perCluster;
  if (clusters < kLeastFat16Clusters) return std::nullopt;
  const bool isFat32 = clusters >= kLeastFat32Clusters;
  const uint64_t fatEntries = fatSize * kSectorSize / (isFat32 ? 4 : 2);
  const uint64_t clustersOnDevice = (storage_->SectorCount() - firstData) / perCluster;
  const uint64_t lastCluster = std::min({clusters + 1, fatEntries - 1, clustersOnDevice + 1, kLastFat32Cluster});
  if (lastCluster < 2) return std::nullopt;
  return FatGeometry{.isFat32 = isFat32,
                     .fatStart = static_cast<uint32_t>(bootSector + reserved),
                     .firstDataSector = static_cast<uint32_t>(firstData),
                     .sectorsPerCluster = static_cast<uint32_t>(perCluster),
                     .lastCluster = static_cast<uint32_t>(lastCluster)};
}

// False at the chain's end, and with failed_ set when the FAT cannot be read.
bool FatChain::StepToNextCluster() {
  if (cluster_ == 0) return false;
  const uint32_t entrySize = volume_->isFat32 ? 4 : 2;
  const uint32_t entriesPerSector = kSectorSize / entrySize;
  if (!Load(volume_->fatStart + cluster_ / entriesPerSector)) {
    failed_ = true;
    return false;
  }
  const size_t offset = cluster_ % entriesPerSector * entrySize;
  const uint32_t entry = volume_->isFat32 ? ReadU32(sector_, offset) & kFat32EntryMask : ReadU16(sector_, offset);
  if (entry < 2 || entry > volume_->lastCluster || --clustersLeft_ == 0) {
    cluster_ = 0;
    return false;
  }
  cluster_ = entry;
  next_ = volume_->firstDataSector + (entry - 2) * volume_->sectorsPerCluster;
  left_ = volume_->sectorsPerCluster;
  return true;
}

bool FatChain::Load(uint32_t sector) {
  if (cachedSector_ == sector) return true;
  cachedSector_.reset();
  if (!storage_->Read(sector, sector_)) return false;
  cachedSector_ = sector;
  return true;
}

}  // namespace media_adapter::simulator

#include "fuzz/watched_disk.h"

#include <algorithm>
#include <string_view>

#include "fat/dir_entry.h"
#include "fuzz/fuzz_platform.h"
#include "protocol/little_endian.h"

namespace media_adapter::fuzz {
namespace {

constexpr uint32_t kReserved = 2;
constexpr uint32_t kRootEntries = 64;
constexpr uint32_t kMinFat16 = 4085;
constexpr uint32_t kMinFat32 = 65525;
constexpr uint32_t kEndOfChain = 0xFFFFFFFF;
constexpr size_t kSectorBytes = sizeof(Sector);

void PutSlot(Sector& sector, size_t slot, std::string_view name, uint8_t attributes, uint32_t cluster, uint32_t size) {
  const auto entry = std::span(sector).subspan(slot * kDirEntrySize, kDirEntrySize);
  std::ranges::copy(name, entry.begin());
  entry[kAttributesOffset] = attributes;
  WriteU16(entry, kClusterHighOffset, static_cast<uint16_t>(cluster >> 16));
  WriteU16(entry, kClusterLowOffset, static_cast<uint16_t>(cluster));
  WriteU32(entry, kSizeOffset, size);
}

void PutLongName(Sector& sector, size_t slot, uint8_t ordinal, std::string_view part) {
  PutSlot(sector, slot, std::string_view("\0", 1), kLongNameAttribute, 0, 0);
  const auto entry = std::span(sector).subspan(slot * kDirEntrySize, kDirEntrySize);
  entry[kOrdinalOffset] = ordinal;
  for (size_t i = 0; i < kLongNamePartSize; ++i) {
    const int unit = i < part.size() ? part[i] : i == part.size() ? 0 : 0xFFFF;
    WriteU16(entry, kLongNameOffsets[i], static_cast<uint16_t>(unit));
  }
}

bool IsZero(std::span<const uint8_t> bytes) {
  return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

uint64_t FirstCluster(std::span<const uint8_t> slot, bool isFat32) {
  const uint64_t high = isFat32 ? ReadU16(slot, kClusterHighOffset) : 0;
  return high << 16 | ReadU16(slot, kClusterLowOffset);
}

bool IsIn(uint64_t value, uint64_t first, uint64_t count) { return value >= first && value - first < count; }

}  // namespace

void Disk::Build(const Layout& layout) {
  sectors_.clear();
  const uint32_t fatSectors = !layout.isFat32 ? 16 : layout.hasLongFat ? 512 : 4;
  const uint32_t rootSectors = layout.isFat32 ? 0 : kRootEntries / 16;
  const uint32_t clusters = layout.isFat32 ? kMinFat32 : kMinFat16;
  if (layout.partitionStart != 0) {
    WriteU32(At(0), 454, layout.partitionStart);
    WriteU16(At(0), 510, 0xAA55);
  }
  Sector& boot = At(layout.partitionStart);
  boot[13] = layout.sectorsPerCluster;
  WriteU16(boot, 14, kReserved);
  boot[16] = layout.fats;
  WriteU16(boot, 17, static_cast<uint16_t>(layout.isFat32 ? 0 : kRootEntries));
  WriteU32(boot, 32, kReserved + layout.fats * fatSectors + rootSectors + clusters * layout.sectorsPerCluster);
  WriteU16(boot, 22, static_cast<uint16_t>(layout.isFat32 ? 0 : fatSectors));
  WriteU32(boot, 36, layout.isFat32 ? fatSectors : 0);
  WriteU32(boot, 44, layout.isFat32 ? 2 : 0);
  WriteU16(boot, 510, 0xAA55);
  TakeGeometry();

  constexpr std::array<uint32_t, 9> kChains = {0xFFFFFFF8, kEndOfChain, 0,           kEndOfChain, kEndOfChain,
                                               6,          7,           kEndOfChain, kEndOfChain};
  Sector& fat = At(volume_.fat);
  for (size_t i = 0; i < kChains.size(); ++i) {
    if (layout.isFat32) {
      WriteU32(fat, i * 4, i == 2 ? kEndOfChain : kChains[i]);
    } else {
      WriteU16(fat, i * 2, static_cast<uint16_t>(kChains[i]));
    }
  }
  const uint32_t clusterSize = layout.sectorsPerCluster * uint32_t{kSectorBytes};
  Sector& root = At(layout.isFat32 ? volume_.data : volume_.root);
  PutSlot(root, 0, "VOLUME     ", kVolumeLabelAttribute, 0, 0);
  PutSlot(root, 1, "A          ", kDirectoryAttribute, kFolderA, 0);
  PutLongName(root, 2, 0x42, "txt");
  PutLongName(root, 3, 0x01, "Read me long.");
  PutSlot(root, 4, "README~1TXT", kArchiveAttribute, kLongFile, 300);
  Sector& a = At(SectorOf(kFolderA));
  PutSlot(a, 0, ".          ", kDirectoryAttribute, kFolderA, 0);
  PutSlot(a, 1, "..         ", kDirectoryAttribute, 0, 0);
  PutSlot(a, 2, "B          ", kDirectoryAttribute, kFolderB, 0);
  PutSlot(a, 3, "F       BIN", kArchiveAttribute, kFileF, 2 * clusterSize + 100);
  Sector& b = At(SectorOf(kFolderB));
  PutSlot(b, 0, ".          ", kDirectoryAttribute, kFolderB, 0);
  PutSlot(b, 1, "..         ", kDirectoryAttribute, kFolderA, 0);
}

void Disk::TakeGeometry() {
  Geometry volume;
  volume.boot = ReadU32(At(0), 454);
  const Sector& boot = At(volume.boot);
  const uint64_t reserved = ReadU16(boot, 14);
  const uint64_t total = ReadU16(boot, 19) != 0 ? ReadU16(boot, 19) : ReadU32(boot, 32);
  volume.fatSectors = ReadU16(boot, 22) != 0 ? ReadU16(boot, 22) : ReadU32(boot, 36);
  volume.sectorsPerCluster = std::max<uint32_t>(boot[13], 1);
  volume.fat = volume.boot + reserved;
  volume.root = volume.fat + boot[16] * volume.fatSectors;
  volume.rootSectors = (ReadU16(boot, 17) * 32U + 511) / 512;
  volume.data = volume.root + volume.rootSectors;
  volume.end = volume.boot + total;
  const uint64_t clusters = volume.end > volume.data ? (volume.end - volume.data) / volume.sectorsPerCluster : 0;
  volume.isFat32 = clusters >= kMinFat32;
  volume.isSound = reserved > 0 && boot[16] > 0 && volume.fatSectors > 0 && clusters > 0;
  const uint64_t inFat = volume.fatSectors * (volume.isFat32 ? 128 : 256);
  volume.lastCluster = std::min(clusters + 1, inFat == 0 ? 0 : inFat - 1);
  volume_ = volume;
}

uint32_t Disk::FatEntry(uint64_t cluster) {
  const uint64_t perSector = volume_.isFat32 ? 128 : 256;
  const Sector& sector = At(volume_.fat + cluster / perSector);
  const size_t place = cluster % perSector;
  return volume_.isFat32 ? ReadU32(sector, place * 4) : ReadU16(sector, place * 2);
}

void Disk::BeginRequest(RequestId id) {
  request_ = id;
  fatWrites_ = 0;
  oldEntries_.clear();
  onceFree_.clear();
  ownedFirst_.clear();
  readClusters_.clear();
  writtenClusters_.clear();
}

void Disk::Read(uint32_t sector, std::span<uint8_t> out) {
  for (size_t at = 0; at < out.size(); at += kSectorBytes, ++sector) {
    const auto found = sectors_.find(sector);
    const auto place = out.subspan(at, std::min(kSectorBytes, out.size() - at));
    if (found == sectors_.end()) {
      std::ranges::fill(place, uint8_t{0});
    } else {
      CopyBytes(std::span(found->second).first(place.size()), place);
    }
    if (sector < volume_.data) continue;
    const uint64_t cluster = (sector - volume_.data) / volume_.sectorsPerCluster + 2;
    if (!writtenClusters_.contains(cluster)) readClusters_.insert(cluster);
  }
}

void Disk::Write(uint32_t sector, std::span<const uint8_t> data, bool isKept) {
  for (size_t at = 0; at + kSectorBytes <= data.size(); at += kSectorBytes, ++sector) {
    Sector& stored = At(sector);
    const auto bytes = data.subspan(at, kSectorBytes);
    Judge(sector, stored, bytes);
    if (isKept) CopyBytes(bytes, stored);
  }
}

void Disk::Judge(uint64_t sector, const Sector& before, std::span<const uint8_t> after) {
  if (sector == 0 || sector == volume_.boot) Breach("the boot sector is written", sector);
  if (sector < volume_.fat || sector >= volume_.end) Breach("a sector outside the volume is written", sector);
  if (volume_.lastCluster < 2) Breach("a volume without clusters is written to", sector);
  if (!volume_.isSound) return;

  const bool isFormat = request_ == RequestId::RFAFormat;
  const bool isWriter = isFormat || request_ == RequestId::RFAWriteData || request_ == RequestId::RFADelete ||
                        request_ == RequestId::RFACreateDirectory;
  if (!isWriter) Breach("a request that reads has written", sector);
  if (IsIn(sector, volume_.fat, volume_.fatSectors)) return JudgeFat(sector, before, after);
  if (isFormat) {
    const bool isRoot = volume_.isFat32 ? IsIn(sector, volume_.data, volume_.sectorsPerCluster)
                                        : IsIn(sector, volume_.root, volume_.rootSectors);
    if (!isRoot && sector != volume_.fat + volume_.fatSectors) Breach("formatting clears a foreign sector", sector);
    if (!IsZero(after)) Breach("formatting writes what is not zero", sector);
    return;
  }
  if (sector < volume_.root) Breach("another FAT copy is written", sector);
  if (sector >= volume_.data) return JudgeCluster(sector, before, after);
  if (volume_.isFat32) Breach("a sector between FAT and clusters is written", sector);
  JudgeSlots(before, after);
}

void Disk::JudgeFat(uint64_t sector, const Sector& before, std::span<const uint8_t> after) {
  const size_t reservedBytes = volume_.isFat32 ? 8 : 4;
  if (sector == volume_.fat &&
      !std::ranges::equal(std::span(before).first(reservedBytes), after.first(reservedBytes))) {
    Breach("FAT entries 0 and 1 are changed");
  }
  if (++fatWrites_ > 2 * volume_.lastCluster + 128) Breach("the FAT is written for ever", fatWrites_);
  if (std::ranges::equal(before, after)) return;
  const size_t width = volume_.isFat32 ? 4 : 2;
  const uint64_t first = (sector - volume_.fat) * (kSectorBytes / width);
  for (size_t i = sector == volume_.fat ? 2 : 0; i < kSectorBytes / width; ++i) {
    const uint32_t old = width == 4 ? ReadU32(before, i * 4) : ReadU16(before, i * 2);
    const uint32_t now = width == 4 ? ReadU32(after, i * 4) : ReadU16(after, i * 2);
    if (old != now) JudgeEntry(first + i, old, now);
  }
}

void Disk::JudgeEntry(uint64_t cluster, uint32_t before, uint32_t after) {
  oldEntries_.try_emplace(cluster, before);
  if (before == 0 || after == 0) onceFree_.insert(cluster);
  if (request_ == RequestId::RFAFormat) {
    const bool isRoot = volume_.isFat32 && cluster == 2;
    if (after != (isRoot ? kEndOfChain : 0)) Breach("formatting leaves a cluster taken", cluster);
    return;
  }
  if (cluster > volume_.lastCluster) Breach("a FAT entry of no cluster is changed", cluster);
  if (after == 0) {
    if (request_ == RequestId::RFACreateDirectory) Breach("making a folder frees a cluster", cluster);
    return;
  }
  if (request_ == RequestId::RFADelete) Breach("deleting takes a cluster", cluster);
  // A folder grows behind its end: an end mark, or a link to no cluster.
  const uint32_t link = volume_.isFat32 ? before & 0x0FFFFFFF : before;
  const bool endsChain = link < 2 || link >= (volume_.isFat32 ? 0x0FFFFFF7 : 0xFFF7);
  if (before != 0 && !endsChain) Breach("a link inside a chain is changed", cluster);
}

// Of a directory's sector: free slots may be filled, a file's entry rewritten under its name, or entries marked.
void Disk::JudgeSlots(const Sector& before, std::span<const uint8_t> after) {
  const bool isSectorSame = std::ranges::equal(before, after);
  for (size_t at = 0; at < kSectorBytes; at += kDirEntrySize) {
    const auto old = std::span(before).subspan(at, kDirEntrySize);
    const auto now = after.subspan(at, kDirEntrySize);
    const bool isSame = std::ranges::equal(old, now);
    // An entry rewritten as it was shows no change.
    if (!isSame || isSectorSame) ownedFirst_.insert(FirstCluster(old, volume_.isFat32));
    if (isSame) continue;
    const bool isFree = old[0] == kNeverUsed || old[0] == kDeleted;
    if (request_ == RequestId::RFADelete) {
      if (now[0] != kDeleted || !std::ranges::equal(old.subspan(1), now.subspan(1))) Breach("not a mark", at);
    } else if (!isFree) {
      const bool keepsName = std::ranges::equal(old.first(kShortNameSize), now.first(kShortNameSize)) &&
                             std::ranges::equal(old.subspan(12, 6), now.subspan(12, 6));
      const bool isFile = (old[kAttributesOffset] & kDirectoryAttribute) == 0;
      if (request_ != RequestId::RFAWriteData || !keepsName || !isFile) Breach("a taken slot is overwritten", at);
    }
  }
}

void Disk::JudgeCluster(uint64_t sector, const Sector& before, std::span<const uint8_t> after) {
  const uint64_t cluster = (sector - volume_.data) / volume_.sectorsPerCluster + 2;
  if (cluster > volume_.lastCluster) Breach("a cluster past the last is written", cluster);
  const bool wasFree = FatEntry(cluster) == 0 || onceFree_.contains(cluster);
  if (!wasFree || readClusters_.contains(cluster)) return JudgeSlots(before, after);
  if (request_ == RequestId::RFADelete) Breach("deleting writes to a free cluster", cluster);
  writtenClusters_.insert(cluster);
}

void Disk::EndOfGoodRequest() {
  if (!volume_.isSound || request_ == RequestId::RFAFormat) return;
  std::unordered_set<uint64_t> owned;
  for (uint64_t cluster : ownedFirst_) {
    while (cluster >= 2 && cluster <= volume_.lastCluster && owned.insert(cluster).second) {
      const auto old = oldEntries_.find(cluster);
      cluster = (old != oldEntries_.end() ? old->second : FatEntry(cluster)) & (volume_.isFat32 ? 0x0FFFFFFF : 0xFFFF);
    }
  }
  for (const auto& [cluster, entry] : oldEntries_) {
    const bool wasTaken = (volume_.isFat32 ? entry & 0x0FFFFFFF : entry) != 0;
    if (wasTaken && FatEntry(cluster) == 0 && !owned.contains(cluster)) Breach("a foreign cluster is freed", cluster);
  }
}

}  // namespace media_adapter::fuzz

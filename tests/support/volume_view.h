// A FAT volume's bytes by their meaning: to look at, to forge, or to make up from nothing. Knows the format by itself;
// nothing here comes from the library. Used by the tests of volumes and files, the soak and the fuzz targets.
#pragma once

#include <algorithm>

#include "protocol/little_endian.h"
#include "tests/support/volume_builder.h"

namespace media_adapter::sim {

using Slot = std::span<uint8_t>;

// The offsets that are used: in a boot sector, and in a slot of a directory.
namespace boot {
inline constexpr size_t kSectorsPerCluster = 13, kReserved = 14, kFats = 16, kRootEntries = 17, kTotal16 = 19,
                        kFatSize16 = 22, kTotal32 = 32, kFatSize32 = 36, kRootCluster = 44, kPartitionStart = 454,
                        kSignature = 510;
}
namespace slot {
inline constexpr size_t kAttributes = 11, kCaseFlags = 12, kChecksum = 13, kCreation = 14, kCreationDate = 16,
                        kAccessDate = 18, kClusterHigh = 20, kWrite = 22, kWriteDate = 24, kClusterLow = 26, kSize = 28,
                        kLength = 32;
inline constexpr uint8_t kDeleted = 0xE5, kLongName = 0x0F, kLabel = 0x08, kFolder = 0x10, kFile = 0x20;
}  // namespace slot

// Where the i-th of a long-name slot's 13 characters stands.
inline size_t CharacterAt(size_t i) { return i < 5 ? 1 + 2 * i : i < 11 ? 4 + 2 * i : 6 + 2 * i; }

// 13 characters at most; a shorter text gets its terminator and padding.
inline Bytes LongSlot(uint8_t ordinal, const std::string& part, uint8_t checksum = 0) {
  Bytes bytes(slot::kLength);
  bytes[0] = ordinal;
  bytes[slot::kAttributes] = slot::kLongName;
  bytes[slot::kChecksum] = checksum;
  for (size_t i = 0; i < 13; ++i) {
    const uint16_t padding = i == part.size() ? 0 : 0xFFFF;
    WriteU16(bytes, CharacterAt(i), i < part.size() ? static_cast<uint8_t>(part[i]) : padding);
  }
  return bytes;
}

inline Bytes ShortSlot(const std::string& name11, uint8_t attributes, uint32_t cluster, uint32_t size) {
  Bytes bytes(slot::kLength);
  std::ranges::copy(name11, bytes.begin());
  bytes[slot::kAttributes] = attributes;
  WriteU16(bytes, slot::kClusterHigh, static_cast<uint16_t>(cluster >> 16));
  WriteU16(bytes, slot::kClusterLow, static_cast<uint16_t>(cluster));
  WriteU32(bytes, slot::kSize, size);
  return bytes;
}

inline uint32_t ClusterIn(std::span<const uint8_t> slot) {
  return ReadU16(slot, slot::kClusterHigh) * 0x10000U + ReadU16(slot, slot::kClusterLow);
}

// A volume with empty FAT and root, by the fields that a mount looks at.
struct Boot {
  uint8_t sectorsPerCluster = 1;
  uint16_t reserved = 1;
  uint8_t fats = 1;
  uint16_t rootEntries = 16;
  uint32_t clusters = 4085;
  uint32_t rootCluster = 2;
  uint16_t signature = 0xAA55;
  bool in32Bits = false;  // the wide fields for sizes
  uint32_t start = 0;     // of the partition
  uint16_t tableSignature = 0xAA55;
  uint32_t fatSectors = 0;  // 0: enough of them
};

inline VolumeImage Forge(const Boot& from) {
  const uint32_t fatSectors = from.fatSectors != 0 ? from.fatSectors : from.clusters / 128 + 1;
  const uint32_t total = from.reserved + from.fats * fatSectors + (from.rootEntries * 32U + 511) / 512 +
                         from.clusters * std::max<uint32_t>(from.sectorsPerCluster, 1);
  const bool isWide = from.in32Bits || total > 0xFFFF;
  VolumeImage image(from.start + total);
  auto& sector = image.At(from.start);
  sector[boot::kSectorsPerCluster] = from.sectorsPerCluster;
  WriteU16(sector, boot::kReserved, from.reserved);
  sector[boot::kFats] = from.fats;
  WriteU16(sector, boot::kRootEntries, from.rootEntries);
  WriteU16(sector, boot::kTotal16, isWide ? 0 : static_cast<uint16_t>(total));
  WriteU16(sector, boot::kFatSize16, from.in32Bits ? 0 : static_cast<uint16_t>(fatSectors));
  WriteU32(sector, boot::kTotal32, isWide ? total : 7);
  WriteU32(sector, boot::kFatSize32, from.in32Bits ? fatSectors : 7);
  WriteU32(sector, boot::kRootCluster, from.rootCluster);
  WriteU16(sector, boot::kSignature, from.signature);
  if (from.start != 0) {
    WriteU32(image.At(0), boot::kPartitionStart, from.start);
    WriteU16(image.At(0), boot::kSignature, from.tableSignature);
  }
  return image;
}

// A volume in the partition that the first sector tells of, or without one.
class VolumeView {
 public:
  explicit VolumeView(VolumeImage& image) : image_(image) {
    const uint32_t start = ReadU32(image.At(0), boot::kPartitionStart);
    const auto& bytes = image.At(start);
    is32 = ReadU16(bytes, boot::kFatSize16) == 0;
    linksPerSector = is32 ? 128 : 256;
    sectorsPerCluster = std::max<uint32_t>(bytes[boot::kSectorsPerCluster], 1);
    fats = bytes[boot::kFats];
    fatSectors = is32 ? ReadU32(bytes, boot::kFatSize32) : ReadU16(bytes, boot::kFatSize16);
    fat = start + ReadU16(bytes, boot::kReserved);
    root = fat + fats * fatSectors;
    data = root + (ReadU16(bytes, boot::kRootEntries) + 15U) / 16;
    const uint32_t total = ReadU16(bytes, boot::kTotal16);
    lastCluster = (start + (total != 0 ? total : ReadU32(bytes, boot::kTotal32)) - data) / sectorsPerCluster + 1;
  }

  // s0 (reserved), fat3, other0 (another FAT), root1 (the fixed root), c5.0 (the first sector of cluster 5)
  std::string Place(uint32_t sector) const {
    if (sector < fat) return "s" + std::to_string(sector);
    if (sector < fat + fatSectors) return "fat" + std::to_string(sector - fat);
    if (sector < root) return "other" + std::to_string(sector - fat - fatSectors);
    if (sector < data) return "root" + std::to_string(sector - root);
    sector -= data;
    return "c" + std::to_string(2 + sector / sectorsPerCluster) + "." + std::to_string(sector % sectorsPerCluster);
  }

  uint32_t Link(uint32_t cluster) const { return is32 ? ReadU32(LinkOf(cluster), 0) : ReadU16(LinkOf(cluster), 0); }
  void SetLink(uint32_t cluster, size_t value) const {
    WriteU16(LinkOf(cluster), 0, static_cast<uint16_t>(value));
    if (is32) WriteU16(LinkOf(cluster), 2, static_cast<uint16_t>(value >> 16));
  }

  size_t ClusterSize() const { return size_t{sectorsPerCluster} * kSectorSize; }
  uint32_t SectorOf(uint32_t cluster) const { return data + (cluster - 2) * sectorsPerCluster; }
  // The slots of a directory in order; 0 is the root.
  std::vector<Slot> Slots(uint32_t cluster = 0) const {
    std::vector<Slot> slots;
    const auto add = [&](uint32_t first, uint32_t count) {
      for (uint32_t i = 0; i < count * 16; ++i) slots.push_back(At(first + i / 16, i % 16 * 32).first(32));
    };
    if (cluster == 0) add(root, data - root);
    for (cluster = cluster == 0 && is32 ? 2 : cluster; cluster >= 2 && cluster <= lastCluster;
         cluster = Link(cluster) & 0x0FFFFFFF) {
      add(SectorOf(cluster), sectorsPerCluster);
    }
    return slots;
  }
  // The short entries of a directory by the 11 characters of their names.
  std::map<std::string, Slot> Entries(uint32_t cluster = 0) const {
    std::map<std::string, Slot> entries;
    for (const Slot entry : Slots(cluster)) {
      if (entry[0] != 0 && entry[0] != slot::kDeleted && entry[slot::kAttributes] != slot::kLongName) {
        entries[{entry.begin(), entry.begin() + 11}] = entry;
      }
    }
    return entries;
  }

  bool is32;
  uint32_t fats, fatSectors, linksPerSector, sectorsPerCluster, lastCluster;
  uint32_t fat, root, data;  // first sectors; a FAT32 volume's root is a chain and has none

 protected:
  VolumeImage& image_;

 private:
  Slot At(uint32_t sector, uint32_t offset) const { return Slot(image_.At(sector)).subspan(offset); }
  Slot LinkOf(uint32_t cluster) const {
    return At(fat + cluster / linksPerSector, cluster % linksPerSector * kSectorSize / linksPerSector);
  }
};

}  // namespace media_adapter::sim

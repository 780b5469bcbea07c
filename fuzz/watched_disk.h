// A device's disk with one FAT volume, and the judge of all that is written to it: each request may change only what is
// its own business. Everything is computed anew from the boot sector, in 64 bits. A breach aborts.
#pragma once

#include <functional>
#include <unordered_map>
#include <unordered_set>

#include "fuzz/fuzz_world.h"
#include "tests/support/volume_view.h"

namespace media_adapter::fuzz {

namespace boot = sim::boot;
namespace slot = sim::slot;
using Sector = sim::VolumeImage::Sector;

// As the boot sector tells it. Sector numbers count from the start of the device.
struct Geometry {
  uint64_t boot = 0, fat = 0, fatSectors = 0, root = 0, rootSectors = 0, data = 0, end = 0;
  uint32_t sectorsPerCluster = 1;
  bool isFat32 = false;
  bool isSound = false;      // its areas are apart
  uint64_t lastCluster = 0;  // of volume and FAT; below 2: none
};

// Clusters of a new disk's volume: \A, \A\B, \A\F.BIN (three, linked) and "\Read me long.txt".
inline constexpr uint32_t kFolderA = 3, kFolderB = 4, kFileF = 5, kLongFile = 8;

// A device that takes every sector; what it says of its size is another matter.
class Disk : public simulator::Storage {
 public:
  explicit Disk(const sim::Boot& volume) : image_(sim::Forge(volume)) {
    image_.SetSectorCount(UINT32_MAX);
    TakeGeometry();
    const sim::VolumeView view(image_);
    constexpr std::array<uint32_t, 9> kChains = {0xFFFFFFF8, kEndOfChain, 0,           kEndOfChain, kEndOfChain,
                                                 6,          7,           kEndOfChain, kEndOfChain};
    for (uint32_t i = 0; i < kChains.size(); ++i) view.SetLink(i, i == 2 && volume.in32Bits ? kEndOfChain : kChains[i]);
    const auto put = [](Sector& sector, std::initializer_list<sim::Bytes> slots) {
      auto place = sector.begin();
      for (const auto& slot : slots) place = std::ranges::copy(slot, place).out;
    };
    const auto fileSize = static_cast<uint32_t>(2 * view.ClusterSize() + 100);
    put(At(volume.in32Bits ? volume_.data : volume_.root),
        {sim::ShortSlot("VOLUME     ", slot::kLabel, 0, 0), sim::ShortSlot("A          ", slot::kFolder, kFolderA, 0),
         sim::LongSlot(0x42, "txt"), sim::LongSlot(0x01, "Read me long."),
         sim::ShortSlot("README~1TXT", slot::kFile, kLongFile, 300)});
    put(At(SectorOf(kFolderA)),
        {sim::ShortSlot(".          ", slot::kFolder, kFolderA, 0), sim::ShortSlot("..         ", slot::kFolder, 0, 0),
         sim::ShortSlot("B          ", slot::kFolder, kFolderB, 0),
         sim::ShortSlot("F       BIN", slot::kFile, kFileF, fileSize)});
    put(At(SectorOf(kFolderB)), {sim::ShortSlot(".          ", slot::kFolder, kFolderB, 0),
                                 sim::ShortSlot("..         ", slot::kFolder, kFolderA, 0)});
  }

  Sector& At(uint64_t sector) { return image_.At(static_cast<uint32_t>(sector)); }
  const Geometry& Volume() const { return volume_; }
  uint64_t SectorOf(uint64_t cluster) const { return volume_.data + (cluster - 2) * volume_.sectorsPerCluster; }
  uint32_t FatEntry(uint64_t cluster) {
    const uint64_t perSector = volume_.isFat32 ? 128 : 256, number = volume_.fat + cluster / perSector;
    if (number >= SectorCount()) return 0;
    const Sector& sector = At(number);
    const size_t place = cluster % perSector;
    return volume_.isFat32 ? ReadU32(sector, place * 4) : ReadU16(sector, place * 2);
  }

  // After the input's own changes: looks at the boot sector again.
  void TakeGeometry() {
    Geometry volume;
    volume.boot = ReadU32(At(0), boot::kPartitionStart);
    const Sector sector = volume.boot < SectorCount() ? At(volume.boot) : Sector{};
    const uint64_t reserved = ReadU16(sector, boot::kReserved);
    const uint64_t total =
        ReadU16(sector, boot::kTotal16) != 0 ? ReadU16(sector, boot::kTotal16) : ReadU32(sector, boot::kTotal32);
    volume.fatSectors =
        ReadU16(sector, boot::kFatSize16) != 0 ? ReadU16(sector, boot::kFatSize16) : ReadU32(sector, boot::kFatSize32);
    volume.sectorsPerCluster = std::max<uint32_t>(sector[boot::kSectorsPerCluster], 1);
    volume.fat = volume.boot + reserved;
    volume.root = volume.fat + sector[boot::kFats] * volume.fatSectors;
    volume.rootSectors = (ReadU16(sector, boot::kRootEntries) * 32U + 511) / 512;
    volume.data = volume.root + volume.rootSectors;
    volume.end = volume.boot + total;
    const uint64_t clusters = volume.end > volume.data ? (volume.end - volume.data) / volume.sectorsPerCluster : 0;
    volume.isFat32 = clusters >= kMinFat32;
    volume.isSound = reserved > 0 && sector[boot::kFats] > 0 && volume.fatSectors > 0 && clusters > 0;
    const uint64_t inFat = volume.fatSectors * (volume.isFat32 ? 128 : 256);
    volume.lastCluster = std::min(clusters + 1, inFat == 0 ? 0 : inFat - 1);
    volume_ = volume;
  }

  void BeginRequest(RequestId id) { request_ = {.id = id}; }
  uint32_t SectorCount() const override { return UINT32_MAX; }
  bool Read(uint32_t sector, std::span<uint8_t> out) override {
    for (uint32_t i = 0; i < out.size() / kSectorBytes; ++i) {
      if (sector + i < volume_.data) continue;
      const uint64_t cluster = (sector + i - volume_.data) / volume_.sectorsPerCluster + 2;
      if (!request_.writtenClusters.contains(cluster)) request_.readClusters.insert(cluster);
    }
    return image_.Read(sector, out);
  }

  // Judges the write; stores it unless it is dropped.
  bool Write(uint32_t sector, std::span<const uint8_t> data) override {
    for (size_t at = 0; at < data.size(); at += kSectorBytes, ++sector) {
      Sector& stored = At(sector);
      const auto bytes = data.subspan(at, kSectorBytes);
      Judge(sector, stored, bytes);
      if (!drops()) std::ranges::copy(bytes, stored.begin());
    }
    return true;
  }

  std::function<bool()> drops;  // a write that it acknowledges
  // What was freed belonged to the entries that changed.
  void EndOfGoodRequest() {
    if (!volume_.isSound || request_.id == RequestId::RFAFormat) return;
    std::unordered_set<uint64_t> owned;
    for (uint64_t cluster : request_.ownedFirst) {
      while (cluster >= 2 && cluster <= volume_.lastCluster && owned.insert(cluster).second) {
        const auto old = request_.oldEntries.find(cluster);
        cluster = (old != request_.oldEntries.end() ? old->second : FatEntry(cluster)) &
                  (volume_.isFat32 ? 0x0FFFFFFF : 0xFFFF);
      }
    }
    for (const auto& [cluster, entry] : request_.oldEntries) {
      const bool wasTaken = (volume_.isFat32 ? entry & 0x0FFFFFFF : entry) != 0;
      if (wasTaken && FatEntry(cluster) == 0 && !owned.contains(cluster)) Breach("a foreign cluster is freed", cluster);
    }
  }

 private:
  void Judge(uint64_t sector, const Sector& before, std::span<const uint8_t> after) {
    if (sector == 0 || sector == volume_.boot) Breach("the boot sector is written", sector);
    if (sector < volume_.fat || sector >= volume_.end) Breach("a sector outside the volume is written", sector);
    if (volume_.lastCluster < 2) Breach("a volume without clusters is written to", sector);
    if (!volume_.isSound) return;

    const bool isFormat = request_.id == RequestId::RFAFormat;
    const bool isWriter = isFormat || request_.id == RequestId::RFAWriteData || request_.id == RequestId::RFADelete ||
                          request_.id == RequestId::RFACreateDirectory;
    if (!isWriter) Breach("a request that reads has written", sector);
    if (IsIn(sector, volume_.fat, volume_.fatSectors)) return JudgeFat(sector, before, after);
    if (isFormat) {
      const bool isRoot = volume_.isFat32 ? IsIn(sector, volume_.data, volume_.sectorsPerCluster)
                                          : IsIn(sector, volume_.root, volume_.rootSectors);
      if (!isRoot && sector != volume_.fat + volume_.fatSectors) Breach("formatting clears a foreign sector", sector);
      if (std::ranges::count(after, 0) != std::ssize(after)) Breach("formatting writes what is not zero", sector);
      return;
    }
    if (sector < volume_.root) Breach("another FAT copy is written", sector);
    if (sector >= volume_.data) return JudgeCluster(sector, before, after);
    if (volume_.isFat32) Breach("a sector between FAT and clusters is written", sector);
    JudgeSlots(before, after);
  }

  void JudgeFat(uint64_t sector, const Sector& before, std::span<const uint8_t> after) {
    const size_t reservedBytes = volume_.isFat32 ? 8 : 4;
    if (sector == volume_.fat &&
        !std::ranges::equal(std::span(before).first(reservedBytes), after.first(reservedBytes))) {
      Breach("FAT entries 0 and 1 are changed");
    }
    if (++request_.fatWrites > 2 * volume_.lastCluster + 128) Breach("the FAT is written for ever", request_.fatWrites);
    if (std::ranges::equal(before, after)) return;
    const size_t width = volume_.isFat32 ? 4 : 2;
    const uint64_t first = (sector - volume_.fat) * (kSectorBytes / width);
    for (size_t i = sector == volume_.fat ? 2 : 0; i < kSectorBytes / width; ++i) {
      const uint32_t old = width == 4 ? ReadU32(before, i * 4) : ReadU16(before, i * 2);
      const uint32_t now = width == 4 ? ReadU32(after, i * 4) : ReadU16(after, i * 2);
      if (old != now) JudgeEntry(first + i, old, now);
    }
  }

  void JudgeEntry(uint64_t cluster, uint32_t before, uint32_t after) {
    request_.oldEntries.try_emplace(cluster, before);
    if (before == 0 || after == 0) request_.onceFree.insert(cluster);
    if (request_.id == RequestId::RFAFormat) {
      const bool isRoot = volume_.isFat32 && cluster == 2;
      if (after != (isRoot ? kEndOfChain : 0)) Breach("formatting leaves a cluster taken", cluster);
      return;
    }
    if (cluster > volume_.lastCluster) Breach("a FAT entry of no cluster is changed", cluster);
    if (after == 0) {
      if (request_.id == RequestId::RFACreateDirectory) Breach("making a folder frees a cluster", cluster);
      return;
    }
    if (request_.id == RequestId::RFADelete) Breach("deleting takes a cluster", cluster);
    // A folder grows behind its end: an end mark, or a link to no cluster.
    const uint32_t link = volume_.isFat32 ? before & 0x0FFFFFFF : before;
    const bool endsChain = link < 2 || link >= (volume_.isFat32 ? 0x0FFFFFF7 : 0xFFF7);
    if (before != 0 && !endsChain) Breach("a link inside a chain is changed", cluster);
  }

  // Of a directory's sector: free slots may be filled, a file's entry rewritten under its name, or entries marked.
  void JudgeSlots(const Sector& before, std::span<const uint8_t> after) {
    const bool isSectorSame = std::ranges::equal(before, after);
    for (size_t at = 0; at < kSectorBytes; at += slot::kLength) {
      const auto old = std::span(before).subspan(at, slot::kLength);
      const auto now = after.subspan(at, slot::kLength);
      const bool isSame = std::ranges::equal(old, now);
      // An entry rewritten as it was shows no change.
      if (!isSame || isSectorSame)
        request_.ownedFirst.insert(volume_.isFat32 ? sim::ClusterIn(old) : ReadU16(old, slot::kClusterLow));
      if (isSame) continue;
      const bool isFree = old[0] == 0 || old[0] == slot::kDeleted;
      if (request_.id == RequestId::RFADelete) {
        if (now[0] != slot::kDeleted || !std::ranges::equal(old.subspan(1), now.subspan(1))) Breach("not a mark", at);
      } else if (!isFree) {
        const bool keepsName = std::ranges::equal(old.first(slot::kAttributes), now.first(slot::kAttributes)) &&
                               std::ranges::equal(old.subspan(12, 6), now.subspan(12, 6));
        const bool isFile = (old[slot::kAttributes] & slot::kFolder) == 0;
        if (request_.id != RequestId::RFAWriteData || !keepsName || !isFile) Breach("a taken slot is overwritten", at);
      }
    }
  }

  void JudgeCluster(uint64_t sector, const Sector& before, std::span<const uint8_t> after) {
    const uint64_t cluster = (sector - volume_.data) / volume_.sectorsPerCluster + 2;
    if (cluster > volume_.lastCluster) Breach("a cluster past the last is written", cluster);
    const bool wasFree = FatEntry(cluster) == 0 || request_.onceFree.contains(cluster);
    if (!wasFree || request_.readClusters.contains(cluster)) return JudgeSlots(before, after);
    if (request_.id == RequestId::RFADelete) Breach("deleting writes to a free cluster", cluster);
    request_.writtenClusters.insert(cluster);
  }

  static constexpr uint32_t kMinFat32 = 65525, kEndOfChain = 0xFFFFFFFF;
  static constexpr size_t kSectorBytes = sizeof(Sector);

  static bool IsIn(uint64_t value, uint64_t first, uint64_t count) { return value >= first && value - first < count; }

  sim::VolumeImage image_;
  Geometry volume_;

  // What it has done so far.
  struct Request {
    RequestId id{};
    uint64_t fatWrites = 0;
    std::unordered_map<uint64_t, uint32_t> oldEntries = {};  // of the FAT, as they were when it began
    std::unordered_set<uint64_t> onceFree = {};              // clusters that were free at some time
    std::unordered_set<uint64_t> ownedFirst = {};            // first clusters of entries that it changed
    std::unordered_set<uint64_t> readClusters = {}, writtenClusters = {};
  } request_;
};

}  // namespace media_adapter::fuzz

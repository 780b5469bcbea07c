// A device's disk with one FAT volume, and the judge of all that is written to it: each request may change only what is
// its own business. Everything is computed anew from the boot sector, in 64 bits. A breach aborts.
#pragma once

#include <functional>
#include <unordered_map>
#include <unordered_set>

#include "api/request_record.h"
#include "tests/support/volume_view.h"

namespace media_adapter::fuzz {

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
  explicit Disk(const sim::Boot& volume);
  Sector& At(uint64_t sector) { return image_.At(static_cast<uint32_t>(sector)); }
  const Geometry& Volume() const { return volume_; }
  uint64_t SectorOf(uint64_t cluster) const { return volume_.data + (cluster - 2) * volume_.sectorsPerCluster; }
  uint32_t FatEntry(uint64_t cluster);

  // After the input's own changes: looks at the boot sector again.
  void TakeGeometry();

  void BeginRequest(RequestId id) { request_ = {.id = id}; }
  uint32_t SectorCount() const override { return UINT32_MAX; }
  bool Read(uint32_t sector, std::span<uint8_t> out) override;
  // Judges the write; stores it unless it is dropped.
  bool Write(uint32_t sector, std::span<const uint8_t> data) override;
  std::function<bool()> drops;  // a write that it acknowledges
  // What was freed belonged to the entries that changed.
  void EndOfGoodRequest();

 private:
  void Judge(uint64_t sector, const Sector& before, std::span<const uint8_t> after);
  void JudgeFat(uint64_t sector, const Sector& before, std::span<const uint8_t> after);
  void JudgeEntry(uint64_t cluster, uint32_t before, uint32_t after);
  void JudgeSlots(const Sector& before, std::span<const uint8_t> after);
  void JudgeCluster(uint64_t sector, const Sector& before, std::span<const uint8_t> after);

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

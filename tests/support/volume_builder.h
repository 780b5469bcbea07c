// FAT volumes for tests, made and judged by strangers: mkfs.fat and mtools write them, fsck.fat and mtools read them
// back. Used by the scenario tests; knows nothing of the library.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "simulator/storage.h"
#include "tests/support/temp_folder.h"

namespace media_adapter::sim {

using simulator::kSectorSize;
using Strings = std::vector<std::string>;

inline Strings Split(const std::string& text, char separator) {
  Strings parts(1);
  for (const char c : text) c == separator ? parts.emplace_back() : parts.back() += c;
  return parts;
}

// The sectors of a device, a value that is cheap to copy: what was loaded is shared, what was written since is the
// copy's own, and sectors of zeros cost nothing.
class VolumeImage : public simulator::Storage {
 public:
  using Sector = std::array<uint8_t, kSectorSize>;

  explicit VolumeImage(uint32_t sectorCount = 0) : sectorCount_(sectorCount), base_(std::make_shared<Sectors>()) {}

  uint32_t SectorCount() const override { return sectorCount_; }
  bool Read(uint32_t sector, std::span<uint8_t> out) override;
  bool Write(uint32_t sector, std::span<const uint8_t> data) override;

  Sector& At(uint32_t sector);  // to look at or to change
  void SetSectorCount(uint32_t count) { sectorCount_ = count; }
  // The file's bytes as sectors from `firstSector` on.
  void Load(const std::string& path, uint32_t firstSector = 0);
  void Save(const std::string& path, uint32_t firstSector = 0);

 private:
  using Sectors = std::unordered_map<uint32_t, Sector>;
  uint32_t sectorCount_;
  std::shared_ptr<Sectors> base_;
  Sectors changed_;
};

struct VolumeShape {
  int fatBits = 16;
  uint32_t sectorsPerCluster = 1;
  uint32_t clusters = 0;  // about; 0 for a small volume of that type
  uint32_t fats = 1;
  uint32_t partitionStart = 0;  // the volume's first sector; 0 for a device without partition table
  uint32_t rootEntries = 512;   // FAT16
};

// In their order: "/Folder|/Folder/FILE:size|/Folder/FILE:size:seed|-/Folder/FILE", a folder, files of that pattern,
// and what is deleted. Neighbours of one folder, size and seed are copied in one go.
VolumeImage Made(const VolumeShape& shape, const std::string& items = {});

struct VolumeItem {
  bool isFolder = false;
  Bytes content;
  int64_t modified = 0;  // last write, seconds since 1970, of the time as the volume states it
};

// What a stranger finds on a volume: "/folder/name" to item.
std::map<std::string, VolumeItem> ReadTree(VolumeImage& image, uint32_t partitionStart = 0);

// Every complaint of fsck.fat, a line each; empty for a sound volume. FSInfo counts do not count.
Strings FsckComplaints(VolumeImage& image, uint32_t partitionStart = 0);

}  // namespace media_adapter::sim

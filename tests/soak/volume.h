// A FAT volume as a stranger reads it: the FAT, the folders and the contents, from the sectors alone. The soak holds
// what the library left against it. Knows the format by itself, trusts the boot sector, and never writes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/volume_builder.h"

namespace media_adapter::soak {

using sim::Bytes;
using Slot = std::array<uint8_t, 32>;
using Clusters = std::vector<uint32_t>;

inline constexpr uint32_t kEnd = 0xFFFFFFFF;  // an end of a chain, whichever mark stands for it
inline constexpr uint32_t kBad = 0xFFFFFFF7;

// The sectors of a device, with a note of those that are written.
class Disk : public sim::VolumeImage {
 public:
  explicit Disk(const sim::VolumeImage& image) : VolumeImage(image) {}
  bool Write(uint32_t sector, std::span<const uint8_t> data) override;
  std::vector<uint32_t> written;  // in order, since it was cleared last
};

// A short entry with the long-name slots that belong to it.
struct Entry {
  std::string name;
  std::vector<size_t> places;  // its slots' indices in the folder; the short entry is the last
  Slot slot{};
  bool IsFolder() const { return (slot[11] & 0x10) != 0; }
};

struct Folder {
  Clusters chain;  // none for a fixed root
  std::vector<Slot> slots;
  std::vector<Entry> entries;  // in order; "." and ".." among them
};

uint8_t ChecksumOf(const Slot& shortEntry);
bool IsLongName(const Slot& slot);  // and in use
bool IsFree(const Slot& slot);

class Volume {
 public:
  Volume(Disk& disk, uint32_t start);

  Clusters Fat() const;  // every entry that the first FAT has room for; 0 is free
  void ReadFatSector(uint32_t index, Clusters& fat) const;
  // From `first` to the end, or to where it leaves the volume, meets a free cluster or is longer than the volume.
  Clusters Chain(const Clusters& fat, uint32_t first) const;
  Folder ReadFolder(const Clusters& chain) const;  // an empty chain: the fixed root
  Bytes Content(const Clusters& chain, uint32_t size) const;
  uint32_t ClusterOf(const Slot& entry) const;
  uint32_t SectorOf(uint32_t cluster) const { return data + (cluster - 2) * sectorsPerCluster; }
  uint32_t SectorOfSlot(const Clusters& chain, size_t slot) const;

  bool is32;
  uint32_t sectorsPerCluster, fat, fatSectors, fats, root, data, end;  // sectors of the device; end: behind the volume
  uint32_t lastCluster, entriesPerSector;

 private:
  sim::VolumeImage::Sector Read(uint32_t sector) const;
  Disk& disk_;
};

}  // namespace media_adapter::soak

// A FAT volume as a stranger reads it: the FAT, the folders and the contents, from the sectors alone. The soak holds
// what the library left against it. Knows the format by itself, trusts the boot sector, and never writes.
#pragma once

#include <ctime>
#include <set>

#include "tests/support/volume_view.h"

namespace media_adapter::soak {

using sim::Bytes;
using Slot = std::array<uint8_t, 32>;
using Clusters = std::vector<uint32_t>;

inline constexpr uint32_t kEnd = 0xFFFFFFFF;  // an end of a chain, whichever mark stands for it
inline constexpr uint32_t kBad = 0xFFFFFFF7;
inline constexpr Slot kZero{};

namespace slot = sim::slot;

// A time as an entry holds it.
struct Moment {
  uint16_t time, date;
  uint32_t Stamp() const { return uint32_t{date} << 16 | time; }  // both, little-endian
  explicit Moment(int64_t seconds) {
    constexpr int64_t kFirst = 315532800;  // 1980
    const std::time_t at = std::max(seconds, kFirst);
    std::tm parts{};
    gmtime_r(&at, &parts);
    time = static_cast<uint16_t>(parts.tm_hour << 11 | parts.tm_min << 5 | parts.tm_sec / 2);
    date = static_cast<uint16_t>((parts.tm_year - 80) << 9 | (parts.tm_mon + 1) << 5 | parts.tm_mday);
  }
};

// The sectors of a device, with a note of those that are written.
class Disk : public sim::VolumeImage {
 public:
  explicit Disk(const sim::VolumeImage& image) : VolumeImage(image) {}
  bool Write(uint32_t sector, std::span<const uint8_t> data) override {
    for (uint32_t i = 0; i < data.size() / sim::kSectorSize; ++i) written.insert(sector + i);
    return VolumeImage::Write(sector, data);
  }
  std::set<uint32_t> written;  // since it was cleared last
};

// A short entry with the long-name slots that belong to it.
struct Entry {
  std::string name;
  std::vector<size_t> places;  // its slots' indices in the folder; the short entry is the last
  Slot slot{};
  bool operator==(const Entry&) const = default;
  bool IsFolder() const { return (slot[slot::kAttributes] & slot::kFolder) != 0; }
  uint32_t Size() const { return ReadU32(slot, slot::kSize); }
};

struct Folder {
  Clusters chain;  // none for a fixed root
  std::vector<Slot> slots;
  std::vector<Entry> entries;  // in order; "." and ".." among them
};

inline bool IsFree(const Slot& slot) { return slot[0] == 0 || slot[0] == slot::kDeleted; }
inline bool IsLongName(const Slot& slot) { return !IsFree(slot) && slot[slot::kAttributes] == slot::kLongName; }

inline uint8_t ChecksumOf(const Slot& shortEntry) {
  uint8_t sum = 0;
  for (size_t i = 0; i < 11; ++i) sum = static_cast<uint8_t>((sum << 7 | sum >> 1) + shortEntry[i]);
  return sum;
}

inline std::string ShortNameIn(const Slot& slot) {
  const auto part = [&](size_t first, size_t count, uint8_t lowerFlag) {
    std::string text(slot.begin() + first, slot.begin() + first + count);
    std::erase(text, ' ');
    for (char& c : text) c = (slot[12] & lowerFlag) != 0 && c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
  };
  std::string base = part(0, 8, 8);
  if (base[0] == 5) base[0] = '\xE5';
  const std::string extension = part(8, 3, 16);
  return extension.empty() ? base : base + "." + extension;
}

class Volume : public sim::VolumeView {
 public:
  using VolumeView::VolumeView;

  uint32_t SectorOfSlot(const Clusters& chain, size_t slot) const {
    const auto n = static_cast<uint32_t>(slot / 16);
    return chain.empty() ? root + n : SectorOf(chain[n / sectorsPerCluster]) + n % sectorsPerCluster;
  }

  // Every entry that the first FAT has room for; 0 is free.
  Clusters Fat() const {
    Clusters entries(size_t{fatSectors} * linksPerSector);
    for (uint32_t i = 0; i < fatSectors; ++i) ReadFatSector(i, entries);
    return entries;
  }
  void ReadFatSector(uint32_t index, Clusters& entries) const {
    const auto& bytes = image_.At(fat + index);
    const uint32_t marks = is32 ? 0x0FFFFFF7 : 0xFFF7;
    for (uint32_t i = 0; i < linksPerSector; ++i) {
      const uint32_t value = is32 ? ReadU32(bytes, i * 4) & 0x0FFFFFFF : ReadU16(bytes, i * 2);
      const uint32_t c = index * linksPerSector + i;
      entries[c] = c < 2 || value < marks ? value : value == marks ? kBad : kEnd;
    }
  }
  // From `first` to the end, or to where it leaves the volume, meets a free cluster or is longer than the volume.
  Clusters Chain(const Clusters& entries, uint32_t first) const {
    Clusters chain;
    for (uint32_t c = first; c >= 2 && c <= lastCluster && entries[c] != 0 && chain.size() < lastCluster;
         c = entries[c]) {
      chain.push_back(c);
    }
    return chain;
  }
  Bytes Content(const Clusters& chain, size_t size) const {
    Bytes content;
    for (uint32_t n = 0; content.size() < size && n / sectorsPerCluster < chain.size(); ++n) {
      const auto& bytes = image_.At(SectorOf(chain[n / sectorsPerCluster]) + n % sectorsPerCluster);
      content.insert(content.end(), bytes.begin(), bytes.end());
    }
    content.resize(std::min(content.size(), size));
    return content;
  }
  Folder ReadFolder(const Clusters& chain) const {
    Folder folder{.chain = chain, .slots = {}, .entries = {}};
    auto& slots = folder.slots;
    slots.resize(chain.empty() ? (data - root) * 16 : chain.size() * sectorsPerCluster * 16);
    for (size_t i = 0; i < slots.size(); ++i) {
      std::copy_n(image_.At(SectorOfSlot(chain, i)).begin() + i % 16 * 32, 32, slots[i].begin());
    }
    for (size_t i = 0; i < slots.size(); ++i) {
      if (!IsFree(slots[i]) && !IsLongName(slots[i])) folder.entries.push_back(EntryAt(slots, i));
    }
    return folder;
  }

 private:
  // With the long-name slots before it that count down to 1 with its checksum. The first of them may be missing.
  static Entry EntryAt(const std::vector<Slot>& slots, size_t place) {
    Entry entry{.name = {}, .places = {place}, .slot = slots[place]};
    for (size_t i = place; i-- > 0;) {
      const Slot& slot = slots[i];
      if (!IsLongName(slot) || (slot[0] & 0x3F) != place - i || slot[13] != ChecksumOf(entry.slot)) break;
      for (size_t k = 0; k < 13; ++k) entry.name += static_cast<char>(slot[sim::CharacterAt(k)]);
      entry.places.insert(entry.places.begin(), i);
      if ((slot[0] & 0x40) != 0) break;
    }
    entry.name = entry.name.empty() ? ShortNameIn(entry.slot) : entry.name.substr(0, entry.name.find('\0'));
    return entry;
  }
};

}  // namespace media_adapter::soak

#include "tests/soak/volume.h"

#include <algorithm>

#include "protocol/little_endian.h"

namespace media_adapter::soak {
namespace {

constexpr size_t kCharacters[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};  // of a long-name slot

std::string ShortNameIn(const Slot& slot) {
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

std::string LongNameIn(const std::vector<Slot>& slots, const std::vector<size_t>& run) {
  std::string name;
  for (auto place = run.rbegin(); place != run.rend(); ++place) {
    for (const size_t at : kCharacters) name += static_cast<char>(slots[*place][at]);
  }
  return name.substr(0, std::min<size_t>(name.find('\0'), 255));
}

// The run of long-name slots right before `place` that counts down to 1 with the checksum of the short entry there. It
// may lack its first slots.
std::vector<size_t> RunBefore(const std::vector<Slot>& slots, size_t place) {
  std::vector<size_t> run;
  for (size_t i = place; i-- > 0;) {
    const Slot& slot = slots[i];
    if (!IsLongName(slot) || (slot[0] & 0x3F) != place - i || slot[13] != ChecksumOf(slots[place])) break;
    run.insert(run.begin(), i);
    if ((slot[0] & 0x40) != 0) break;
  }
  return run;
}

}  // namespace

bool Disk::Write(uint32_t sector, std::span<const uint8_t> data) {
  for (uint32_t i = 0; i < data.size() / sim::kSectorSize; ++i) written.push_back(sector + i);
  return VolumeImage::Write(sector, data);
}

uint8_t ChecksumOf(const Slot& shortEntry) {
  uint8_t sum = 0;
  for (size_t i = 0; i < 11; ++i) sum = static_cast<uint8_t>((sum << 7 | sum >> 1) + shortEntry[i]);
  return sum;
}
bool IsFree(const Slot& slot) { return slot[0] == 0 || slot[0] == 0xE5; }
bool IsLongName(const Slot& slot) { return !IsFree(slot) && slot[11] == 0x0F; }

Volume::Volume(Disk& disk, uint32_t start) : disk_(disk) {
  const auto boot = Read(start);
  is32 = ReadU16(boot, 22) == 0;
  sectorsPerCluster = boot[13];
  fat = start + ReadU16(boot, 14);
  fatSectors = is32 ? ReadU32(boot, 36) : ReadU16(boot, 22);
  fats = boot[16];
  root = fat + fats * fatSectors;
  data = root + ReadU16(boot, 17) / 16U;
  end = start + (ReadU16(boot, 19) != 0 ? ReadU16(boot, 19) : ReadU32(boot, 32));
  lastCluster = (end - data) / sectorsPerCluster + 1;
  entriesPerSector = is32 ? 128 : 256;
}

sim::VolumeImage::Sector Volume::Read(uint32_t sector) const {
  sim::VolumeImage::Sector bytes{};
  disk_.Read(sector, bytes);
  return bytes;
}

Clusters Volume::Fat() const {
  Clusters entries(size_t{fatSectors} * entriesPerSector);
  for (uint32_t i = 0; i < fatSectors; ++i) ReadFatSector(i, entries);
  return entries;
}

void Volume::ReadFatSector(uint32_t index, Clusters& entries) const {
  const auto bytes = Read(fat + index);
  const uint32_t marks = is32 ? 0x0FFFFFF7 : 0xFFF7;
  for (uint32_t i = 0; i < entriesPerSector; ++i) {
    const uint32_t value = is32 ? ReadU32(bytes, i * 4) & 0x0FFFFFFF : ReadU16(bytes, i * 2);
    const uint32_t c = index * entriesPerSector + i;
    entries[c] = c < 2 || value < marks ? value : value == marks ? kBad : kEnd;
  }
}

Clusters Volume::Chain(const Clusters& entries, uint32_t first) const {
  Clusters chain;
  for (uint32_t c = first; c >= 2 && c <= lastCluster && entries[c] != 0 && chain.size() < lastCluster;
       c = entries[c]) {
    chain.push_back(c);
  }
  return chain;
}

uint32_t Volume::SectorOfSlot(const Clusters& chain, size_t slot) const {
  const auto n = static_cast<uint32_t>(slot / 16);
  if (chain.empty()) return root + n;
  return SectorOf(chain[n / sectorsPerCluster]) + n % sectorsPerCluster;
}

Folder Volume::ReadFolder(const Clusters& chain) const {
  Folder folder{.chain = chain, .slots = {}, .entries = {}};
  const size_t count = chain.empty() ? (data - root) * 16 : chain.size() * sectorsPerCluster * 16;
  folder.slots.resize(count);
  for (size_t i = 0; i < count; i += 16) {
    const auto bytes = Read(SectorOfSlot(chain, i));
    for (size_t k = 0; k < 16; ++k) std::copy_n(bytes.begin() + k * 32, 32, folder.slots[i + k].begin());
  }
  for (size_t i = 0; i < count; ++i) {
    const Slot& slot = folder.slots[i];
    if (IsFree(slot) || IsLongName(slot)) continue;
    Entry entry{.name = {}, .places = RunBefore(folder.slots, i), .slot = slot};
    entry.name = entry.places.empty() ? ShortNameIn(slot) : LongNameIn(folder.slots, entry.places);
    entry.places.push_back(i);
    folder.entries.push_back(entry);
  }
  return folder;
}

Bytes Volume::Content(const Clusters& chain, uint32_t size) const {
  Bytes content;
  for (uint32_t n = 0; content.size() < size && n / sectorsPerCluster < chain.size(); ++n) {
    const auto bytes = Read(SectorOf(chain[n / sectorsPerCluster]) + n % sectorsPerCluster);
    content.insert(content.end(), bytes.begin(), bytes.end());
  }
  content.resize(std::min<size_t>(content.size(), size));
  return content;
}

uint32_t Volume::ClusterOf(const Slot& entry) const {
  return ReadU16(entry, 26) | (is32 ? static_cast<uint32_t>(ReadU16(entry, 20)) << 16 : 0);
}

}  // namespace media_adapter::soak

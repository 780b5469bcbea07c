// Creating a directory: its entries in the parent, its link in the FAT, then its first cluster.
#include <algorithm>

#include "fat/cluster_chain.h"
#include "fat/directory_scan.h"
#include "fat/entry_creation.h"
#include "fat/path_lookup.h"
#include "fat/short_name.h"
#include "fat/volume.h"
#include "fat/volume_names.h"
#include "fileops/file_operations.h"

namespace media_adapter {
namespace {

using Entry = std::span<uint8_t>;

constexpr char kSeparator = '\\';
constexpr uint8_t kMaxPlainCharacter = 0x7F;

std::string_view Trim(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

bool IsValidName(std::string_view name) {
  const auto isPlain = [](char c) { return static_cast<uint8_t>(c) <= kMaxPlainCharacter; };
  return !name.empty() && name != "." && name != ".." && CanHoldName(name) && std::ranges::all_of(name, isPlain);
}

void BuildDotEntry(Entry entry, std::string_view name, uint32_t cluster, uint16_t time, uint16_t date) {
  std::ranges::fill(entry, uint8_t{0});
  std::ranges::fill(entry.first(kShortNameSize), uint8_t{' '});
  std::ranges::copy(name, entry.begin());
  entry[kAttributesOffset] = kDirectoryAttribute;
  WriteU16(entry, kCreationTimeOffset, time);
  WriteU16(entry, kCreationDateOffset, date);
  WriteU16(entry, kAccessDateOffset, date);
  WriteU16(entry, kClusterHighOffset, static_cast<uint16_t>(cluster >> 16));
  WriteU16(entry, kWriteTimeOffset, time);
  WriteU16(entry, kWriteDateOffset, date);
  WriteU16(entry, kClusterLowOffset, static_cast<uint16_t>(cluster));
}

// Puts "." and "..", with the times of the new directory's own entry, at the start of the working sector.
StatusCode WriteDotEntries(uint32_t newCluster, uint32_t parentCluster) {
  const SlotLocation own = entryLocations.places[0];
  if (const StatusCode status = ReadSector(own.sector); status != MEDIA_ADAPTER_OK) return status;
  const DirSlot ownEntry = WorkingSector().subspan(own.offset, kDirEntrySize);
  const uint16_t time = ReadU16(ownEntry, kCreationTimeOffset);
  const uint16_t date = ReadU16(ownEntry, kCreationDateOffset);
  const uint32_t parent = parentCluster == RootReference() ? 0 : parentCluster;
  BuildDotEntry(WorkingSector().first(kDirEntrySize), ".", newCluster, time, date);
  BuildDotEntry(WorkingSector().subspan(kDirEntrySize, kDirEntrySize), "..", parent, time, date);
  return MEDIA_ADAPTER_OK;
}

StatusCode InitDirectoryCluster(uint32_t newCluster, uint32_t parentCluster) {
  const uint32_t first = ClusterToSector(newCluster);
  StatusCode status = ZeroSectors(first, fatVolume.sectorsPerCluster);
  if (status == MEDIA_ADAPTER_OK) status = WriteDotEntries(newCluster, parentCluster);
  if (status != MEDIA_ADAPTER_OK) return status;
  std::ranges::fill(WorkingSector().subspan(2 * kDirEntrySize), uint8_t{0});
  return WriteSector(first);
}

// Gives `name` its entries in `parent` and a cluster of its own.
StatusCode AddDirectory(uint32_t parent, std::string_view name) {
  NewEntry newEntry{.name = std::string(name), .dirCluster = parent, .entryCount = EntriesNeededForName(name)};
  StatusCode status = FindFreeDirEntries(parent, newEntry.entryCount);
  if (status == MEDIA_ADAPTER_OK) status = FindFreeClusters({&newEntry.firstCluster, 1});
  if (status == MEDIA_ADAPTER_OK) status = WriteEntrySet(newEntry);
  if (status == MEDIA_ADAPTER_OK) status = LinkClusterChain({&newEntry.firstCluster, 1});
  if (status == MEDIA_ADAPTER_OK) status = InitDirectoryCluster(newEntry.firstCluster, parent);
  return status;
}

}  // namespace

StatusCode MakeDirectory(const std::string& devicePath) {
  const size_t separator = devicePath.rfind(kSeparator);
  if (separator == std::string::npos) return MEDIA_ADAPTER_INVALID_PATH;
  const std::string_view name = Trim(std::string_view(devicePath).substr(separator + 1));
  if (!IsValidName(name)) return MEDIA_ADAPTER_INVALID_PATH;

  const FoundEntry parent = LookupPath(devicePath.substr(0, separator));
  if (parent.status != MEDIA_ADAPTER_OK) return parent.status;
  if (parent.isFile) return MEDIA_ADAPTER_INVALID_PATH;
  const FoundEntry existing = FindEntry(parent.firstCluster, name, MatchNames::Long);
  if (existing.status != MEDIA_ADAPTER_OK) return existing.status;
  if (existing.isFound) return MEDIA_ADAPTER_NAME_IN_USE;
  return AddDirectory(parent.firstCluster, name);
}

}  // namespace media_adapter

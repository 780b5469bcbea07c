#include "fat/path_lookup.h"

#include "fat/device_path.h"
#include "fat/directory_scan.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"

namespace media_adapter {

FoundEntry FindEntry(uint32_t dirCluster, std::string_view name, MatchNames match) {
  FoundEntry found;
  const auto isWanted = [&](DirSlot entry, const SlotLocation& location) {
    const bool byLongName = match == MatchNames::Long && longNameParts.pendingCount != 0;
    if (!NamesEqual(byLongName ? LongName() : ShortName(entry, CaseFlags::Ignored), name)) return false;
    found.isFound = true;
    found.firstCluster = FirstClusterOf(entry);
    found.size = ReadU32(entry, kSizeOffset);
    found.isFile = (entry[kAttributesOffset] & kDirectoryAttribute) == 0;
    entryLocations.Set(0, location);
    return true;
  };
  found.status = ScanShortEntries(dirCluster, isWanted);
  return found;
}

FoundEntry LookupPath(std::string_view path) {
  FoundEntry found{.isFound = true, .firstCluster = RootReference()};
  const int count = CountPathComponents(path);
  for (int k = 1; k <= count; ++k) {
    if (found.isFile) return {.status = MEDIA_ADAPTER_INVALID_PATH};
    found = FindEntry(found.firstCluster, GetPathComponent(path, k), MatchNames::Long);
    if (found.status != MEDIA_ADAPTER_OK) return found;
    if (!found.isFound) return {.status = MEDIA_ADAPTER_INVALID_PATH};
  }
  return found;
}

}  // namespace media_adapter

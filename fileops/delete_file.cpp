// Deleting a file: its directory entries are marked, then its chain is freed.
#include "fat/cluster_chain.h"
#include "fat/directory_scan.h"
#include "fat/path_lookup.h"
#include "fat/sector_buffers.h"
#include "fileops/file_operations.h"

namespace media_adapter {
namespace {

// Marks the `count` slots of the entry found last, each of their sectors read and written once. A slot that a broken
// run of long-name entries left unknown is none of the file's.
StatusCode MarkDeleted(size_t count) {
  for (size_t k = 0; k < count;) {
    if (!entryLocations.isKnown[k]) {
      ++k;
      continue;
    }
    const uint32_t sector = entryLocations.places[k].sector;
    if (const StatusCode status = ReadSector(sector); status != MEDIA_ADAPTER_OK) return status;
    for (; k < count && entryLocations.isKnown[k] && entryLocations.places[k].sector == sector; ++k) {
      WorkingSector()[entryLocations.places[k].offset] = kDeleted;
    }
    if (const StatusCode status = WriteSector(sector); status != MEDIA_ADAPTER_OK) return status;
  }
  return MEDIA_ADAPTER_OK;
}

}  // namespace

StatusCode DeleteDeviceFile(const std::string& devicePath) {
  const FoundEntry item = LookupPath(devicePath);
  if (item.status != MEDIA_ADAPTER_OK) return item.status;
  if (!item.isFile) return MEDIA_ADAPTER_CANNOT_DELETE_DIRECTORY;
  if (const StatusCode status = MarkDeleted(longNameParts.pendingCount + 1U); status != MEDIA_ADAPTER_OK) return status;
  return item.size == 0 ? StatusCode{MEDIA_ADAPTER_OK} : FreeClusterChain(item.firstCluster);
}

}  // namespace media_adapter

// Copying a local file to the device. The order is fixed: the old chain is freed, clusters are found, the data is
// written, then the directory entries, and last the new chain.
#include <algorithm>
#include <limits>
#include <new>
#include <vector>

#include "fat/cluster_chain.h"
#include "fat/directory_scan.h"
#include "fat/entry_creation.h"
#include "fat/path_lookup.h"
#include "fat/short_name.h"
#include "fat/volume.h"
#include "fat/volume_names.h"
#include "fileops/file_operations.h"
#include "platform/local_files.h"

namespace media_adapter {
namespace {

constexpr char kSeparator = '\\';

// The size of a regular file that a volume can hold. Returns 244 or 249 of its own.
StatusCode MeasureFile(const std::string& localPath, uint32_t& size) {
  platform::LocalFile file;
  if (!file.OpenForReading(localPath)) return MEDIA_ADAPTER_INVALID_PATH;
  const auto length = file.Size();
  if (!length) return MEDIA_ADAPTER_INVALID_PATH;
  if (*length > std::numeric_limits<uint32_t>::max()) return MEDIA_ADAPTER_NOT_ENOUGH_MEMORY;
  size = static_cast<uint32_t>(*length);
  return MEDIA_ADAPTER_OK;
}

// Finds the slots for the name: those of a file that is overwritten, whose chain is freed, or new ones.
StatusCode TakeSlots(NewEntry& newEntry) {
  const FoundEntry existing = FindEntry(newEntry.dirCluster, newEntry.name, MatchNames::Long);
  if (existing.status != MEDIA_ADAPTER_OK) return existing.status;
  if (!existing.isFound) {
    newEntry.entryCount = EntriesNeededForName(newEntry.name);
    return FindFreeDirEntries(newEntry.dirCluster, newEntry.entryCount);
  }
  if (!existing.isFile) return MEDIA_ADAPTER_CANNOT_OVERWRITE_DIRECTORY;
  newEntry.nameUse = NameUse::Existing;
  newEntry.entryCount = longNameParts.pendingCount + 1U;
  if (existing.size == 0) return MEDIA_ADAPTER_OK;
  const StatusCode status = FreeClusterChain(existing.firstCluster);
  fatSectorCache.cachedFatSector = kEnd;
  return status;
}

// Writes the file's bytes to its clusters, one sector a request. Behind the file's end the last sector carries what the
// working sector held, which is this volume's own; sectors of the last cluster behind it are not written.
StatusCode WriteFileClusters(const std::string& localPath, uint32_t size, const std::vector<uint32_t>& clusterList) {
  platform::LocalFile file;
  if (!file.OpenForReading(localPath)) return MEDIA_ADAPTER_INVALID_PATH;
  const uint32_t sectorsPerCluster = fatVolume.sectorsPerCluster;
  for (uint32_t k = 0; uint64_t{k} * kSectorSize < size; ++k) {
    const uint32_t count = std::min(kSectorSize, size - k * kSectorSize);
    // A file that has become shorter meanwhile must not end up as the size that it was.
    if (file.Read(WorkingSector().first(count)) != count) return MEDIA_ADAPTER_INVALID_PATH;
    const uint32_t sector = ClusterToSector(clusterList[k / sectorsPerCluster]) + k % sectorsPerCluster;
    if (const StatusCode status = WriteSector(sector); status != MEDIA_ADAPTER_OK) return status;
  }
  return MEDIA_ADAPTER_OK;
}

// False when there is no memory for so many.
bool AllocateList(uint32_t size, std::vector<uint32_t>& clusterList) {
  const uint64_t clusterSize = uint64_t{fatVolume.sectorsPerCluster} * kSectorSize;
  try {
    clusterList.resize(static_cast<size_t>((size + clusterSize - 1) / clusterSize));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// Finds clusters for the content, writes it, then the entries, then links the chain.
StatusCode WriteContents(const std::string& localPath, NewEntry& newEntry) {
  std::vector<uint32_t> clusterList;
  if (!AllocateList(newEntry.size, clusterList)) return MEDIA_ADAPTER_NOT_ENOUGH_MEMORY;
  StatusCode status = FindFreeClusters(clusterList);
  if (status == MEDIA_ADAPTER_OK) status = WriteFileClusters(localPath, newEntry.size, clusterList);
  if (!clusterList.empty()) newEntry.firstCluster = clusterList.front();
  if (status == MEDIA_ADAPTER_OK) status = WriteEntrySet(newEntry);
  if (status == MEDIA_ADAPTER_OK) status = LinkClusterChain(clusterList);
  return status;
}

}  // namespace

StatusCode StoreLocalFile(const std::string& localPath, std::string deviceFolder, const TrimRequest& trimCallerFolder) {
  NewEntry newEntry;
  if (const StatusCode status = MeasureFile(localPath, newEntry.size); status != MEDIA_ADAPTER_OK) return status;
  newEntry.localFile = platform::FindLocalFile(localPath);
  if (!newEntry.localFile || !CanHoldName(newEntry.localFile->name)) return MEDIA_ADAPTER_INVALID_PATH;
  newEntry.name = newEntry.localFile->name;
  const FoundEntry folder = LookupPath(deviceFolder);
  if (folder.status != MEDIA_ADAPTER_OK) return folder.status;
  if (folder.isFile) return MEDIA_ADAPTER_INVALID_PATH;
  newEntry.dirCluster = folder.firstCluster;

  if (deviceFolder.ends_with(kSeparator)) {
    deviceFolder.pop_back();
    trimCallerFolder();
  }
  if (deviceFolder.size() + 1 + newEntry.name.size() > MEDIA_ADAPTER_MAX_PATH) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;
  if (const StatusCode status = TakeSlots(newEntry); status != MEDIA_ADAPTER_OK) return status;
  return WriteContents(localPath, newEntry);
}

}  // namespace media_adapter

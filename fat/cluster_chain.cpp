#include "fat/cluster_chain.h"

#include <array>

#include "fat/volume.h"
#include "protocol/little_endian.h"

namespace media_adapter {
namespace {

constexpr uint32_t kFat32Mask = 0x0FFFFFFF;  // the upper four bits of a FAT32 entry are not part of the number
constexpr uint32_t kFree = 0;
constexpr uint32_t kEndMark = 0xFFFFFFFF;  // as written, cut to the entry's width

bool IsFat16() { return fatVolume.fatType == FatType::Fat16; }

bool IsCluster(uint32_t cluster) { return cluster >= kFirstCluster && cluster <= LastCluster(); }

uint32_t FatSectorOf(uint32_t cluster) { return cluster / EntriesPerFatSector(); }

size_t OffsetOf(uint32_t cluster) { return cluster % EntriesPerFatSector() * (IsFat16() ? 2 : 4); }

// The cached entry in its full width.
uint32_t CachedEntry(uint32_t cluster) {
  const size_t offset = OffsetOf(cluster);
  return IsFat16() ? ReadU16(fatSectorCache.data, offset) : ReadU32(fatSectorCache.data, offset);
}

void SetCachedEntry(uint32_t cluster, uint32_t value) {
  const size_t offset = OffsetOf(cluster);
  if (IsFat16()) {
    WriteU16(fatSectorCache.data, offset, static_cast<uint16_t>(value));
  } else {
    WriteU32(fatSectorCache.data, offset, value);
  }
}

enum class WriteBack : uint8_t { No, Yes };

// Brings the FAT sector with the cluster's entry into the cache. The cached one is written back between the reading of
// the new one and its copying, when `writeBack` says so.
StatusCode LoadFatSector(uint32_t cluster, WriteBack writeBack) {
  const uint32_t sector = FatSectorOf(cluster);
  if (sector == fatSectorCache.cachedFatSector) return MEDIA_ADAPTER_OK;
  if (const StatusCode status = ReadSector(fatVolume.fatStartSector + sector); status != MEDIA_ADAPTER_OK) {
    return status;
  }
  if (writeBack == WriteBack::Yes) {
    if (const StatusCode status = FlushFatSector(); status != MEDIA_ADAPTER_OK) return status;
  }
  CopyBytes(WorkingSector(), fatSectorCache.data);
  fatSectorCache.cachedFatSector = sector;
  return MEDIA_ADAPTER_OK;
}

uint32_t NumberIn(uint32_t entry) { return IsFat16() ? entry : entry & kFat32Mask; }

uint32_t LinkOf(uint32_t entry) {
  const uint32_t value = NumberIn(entry);
  const bool endsChain = value < kFirstCluster || value >= (IsFat16() ? kFat16Bad : kFat32Bad);
  return endsChain ? kEnd : value;
}

// A chain can be continued behind a cluster that is in use. One whose last cluster is free breaks off: it may be handed
// out, to this directory itself.
StatusCode CheckContinuable(uint32_t lastCluster) {
  if (!IsCluster(lastCluster)) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  if (const StatusCode status = LoadFatSector(lastCluster, WriteBack::No); status != MEDIA_ADAPTER_OK) return status;
  const bool breaksOff = NumberIn(CachedEntry(lastCluster)) < kFirstCluster;
  return breaksOff ? MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS : MEDIA_ADAPTER_OK;
}

}  // namespace

uint32_t GetFatEntry(uint32_t cluster, EntryUse use, StatusCode& status) {
  status = MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  if (!IsCluster(cluster)) return kEnd;
  status = LoadFatSector(cluster, use == EntryUse::Free ? WriteBack::Yes : WriteBack::No);
  if (status != MEDIA_ADAPTER_OK) return kEnd;
  const uint32_t entry = CachedEntry(cluster);
  if (use == EntryUse::Free) SetCachedEntry(cluster, kFree);
  return LinkOf(entry);
}

StatusCode FlushFatSector() {
  const FatSectorCache& cache = fatSectorCache;
  if (cache.cachedFatSector == kEnd) return MEDIA_ADAPTER_OK;
  return WriteSectorFrom(fatVolume.fatStartSector + cache.cachedFatSector, cache.data);
}

StatusCode FreeClusterChain(uint32_t cluster) {
  // A chain that loops meets its own freed entries and ends there, unless the device drops what is written.
  uint32_t left = LastCluster() - kFirstCluster + 1;
  StatusCode status = MEDIA_ADAPTER_OK;
  for (; cluster >= kFirstCluster && cluster != kEnd && status == MEDIA_ADAPTER_OK; --left) {
    if (left == 0 || IsWalked(cluster)) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
    cluster = GetFatEntry(cluster, EntryUse::Free, status);
  }
  return status == MEDIA_ADAPTER_OK ? FlushFatSector() : status;
}

StatusCode ReadChainSector(uint32_t& cluster, uint32_t n) {
  if (!IsCluster(cluster)) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  NoteWalked(cluster);
  const uint32_t inCluster = n % fatVolume.sectorsPerCluster;
  uint32_t next = cluster;
  if (inCluster + 1 == fatVolume.sectorsPerCluster) {
    StatusCode status = MEDIA_ADAPTER_OK;
    next = GetFatEntry(cluster, EntryUse::Read, status);
    if (status != MEDIA_ADAPTER_OK) return status;
  }
  const StatusCode status = ReadSector(ClusterToSector(cluster) + inCluster);
  if (status == MEDIA_ADAPTER_OK) cluster = next;
  return status;
}

StatusCode FindFreeClusters(std::span<uint32_t> list) {
  const uint32_t last = LastCluster();
  size_t found = 0;
  for (uint32_t cluster = kFirstCluster; found < list.size(); ++cluster) {
    if (cluster > last) return MEDIA_ADAPTER_NOT_ENOUGH_MEMORY;
    if (const StatusCode status = LoadFatSector(cluster, WriteBack::No); status != MEDIA_ADAPTER_OK) return status;
    if (CachedEntry(cluster) != kFree) continue;
    if (IsWalked(cluster)) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
    list[found++] = cluster;
  }
  return MEDIA_ADAPTER_OK;
}

StatusCode LinkClusterChain(std::span<const uint32_t> list) {
  if (list.empty()) return MEDIA_ADAPTER_OK;
  for (size_t i = 0; i < list.size(); ++i) {
    const StatusCode status = LoadFatSector(list[i], i > 0 ? WriteBack::Yes : WriteBack::No);
    if (status != MEDIA_ADAPTER_OK) return status;
    SetCachedEntry(list[i], i + 1 < list.size() ? list[i + 1] : kEndMark);
  }
  const StatusCode status = FlushFatSector();
  if (status == MEDIA_ADAPTER_OK) fatSectorCache.cachedFatSector = kEnd;
  return status;
}

StatusCode GrowDirectory(uint32_t lastCluster, uint32_t& newCluster) {
  if (const StatusCode status = CheckContinuable(lastCluster); status != MEDIA_ADAPTER_OK) return status;
  if (const StatusCode status = FindFreeClusters({&newCluster, 1}); status != MEDIA_ADAPTER_OK) return status;
  const std::array<uint32_t, 2> link = {lastCluster, newCluster};
  if (const StatusCode status = LinkClusterChain(link); status != MEDIA_ADAPTER_OK) return status;
  return ZeroSectors(ClusterToSector(newCluster), fatVolume.sectorsPerCluster);
}

}  // namespace media_adapter

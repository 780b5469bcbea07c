// The first FAT: following, freeing and linking chains of clusters through the one-sector cache.
//
// Every operation that may load a sector of the FAT overwrites the working sector. A change stays in the cache until it
// is written back; the operations that only read replace the cached sector without writing, so nothing may be unwritten
// when they run: freeing ends with FlushFatSector, LinkClusterChain writes back itself.
//
// Unless it says otherwise, an operation returns 0 or the status of the exchange that failed. What was written before a
// failure stays on the device.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "fat/sector_buffers.h"
#include "protocol/status_code.h"

namespace media_adapter {

// Whether a chain's entry is only read, or also marked free in the cache.
enum class EntryUse : uint8_t { Read, Free };

// The cluster after `cluster`, or kEnd: after an end-of-chain or bad-cluster mark, and for a link that is no cluster
// (0 or 1). status: 0; 251 when `cluster` is none of the volume's; or an exchange's (the result means nothing then).
uint32_t GetFatEntry(uint32_t cluster, EntryUse use, StatusCode& status);

// Writes the cached sector back, if there is one. It stays cached.
StatusCode FlushFatSector();

// Frees the chain from `cluster` on and writes the last FAT sector back. Entries 0 and 1 are never touched. Returns 251
// for a chain with a cluster that the request walks, or more steps than the volume has clusters.
StatusCode FreeClusterChain(uint32_t cluster);

// Reads sector `n` (from 0) of the directory chain whose current cluster is `cluster` (not kEnd) into the working
// sector, and moves `cluster` on, to kEnd at last, when it was the cluster's last. To be called with n = 0, 1, 2, ...
// The cluster counts as walked from then on.
StatusCode ReadChainSector(uint32_t& cluster, uint32_t n);

// Fills `list` with the lowest free clusters, in ascending order; they stay free. Returns 249 when there are too few,
// 251 when one of them is a cluster that the request walks.
StatusCode FindFreeClusters(std::span<uint32_t> list);

// Links each cluster of the list to the next and ends the chain behind the last. Leaves the cache empty.
StatusCode LinkClusterChain(std::span<const uint32_t> list);

// Appends a zeroed cluster to the directory whose last cluster is `lastCluster`. Returns 249 on a full volume; 251 when
// there is no such cluster, or it is free itself. After a failure while zeroing, the cluster stays linked.
StatusCode GrowDirectory(uint32_t lastCluster, uint32_t& newCluster);

}  // namespace media_adapter

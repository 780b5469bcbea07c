// One walk along the sectors of a directory: the fixed root area of FAT16, or a chain of clusters. Each step reads one
// sector into the working sector.
#pragma once

#include <cstdint>

#include "fat/sector_buffers.h"
#include "protocol/status_code.h"

namespace media_adapter {

class DirectorySectors {
 public:
  // dirCluster: the directory's first cluster; 0 is the root.
  explicit DirectorySectors(uint32_t dirCluster);

  // False when the directory has ended.
  bool HasNext() const;
  // Reads the next sector, which there must be. Returns the status of the read.
  StatusCode Next();
  // The number of the sector read last.
  uint32_t Sector() const { return sector_; }

  // At the end: appends a zeroed cluster, whose first sector the next step reads. Returns 239 for a directory that
  // cannot grow (the FAT16 root, or one of the longest length), or as GrowDirectory.
  StatusCode Grow();

 private:
  bool isFixedRoot_;
  uint32_t cluster_;          // of the next sector; kEnd behind the last
  uint32_t lastCluster_ = 0;  // of the sector read last; 0: none was
  uint32_t index_ = 0;        // of the next sector
  uint32_t sector_ = 0;
};

}  // namespace media_adapter

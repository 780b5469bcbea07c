// Finding a name in a directory, and the entry that a device path names.
#pragma once

#include <cstdint>
#include <string_view>

#include "protocol/status_code.h"

namespace media_adapter {

struct FoundEntry {
  StatusCode status = MEDIA_ADAPTER_OK;  // 0, or the status of a failed read: whether the name is there is unknown
  bool isFound = false;
  uint32_t firstCluster = 0;
  uint32_t size = 0;    // bytes
  bool isFile = false;  // not a directory
};

enum class MatchNames : uint8_t {
  Long,   // by the long name, or the 8.3 name of an entry without one
  Short,  // by the 8.3 name alone
};

// Looks in the directory that starts at `dirCluster` (0: the root). On a match entryLocations tells where the entry's
// slots lie and longNameParts.pendingCount how many long-name entries it has.
FoundEntry FindEntry(uint32_t dirCluster, std::string_view name, MatchNames match);

// Follows `path` from the root. The root itself is a directory of size 0. What is not found has a status: 244 when a
// component is missing, or is a file with more behind it; or that of a failed read. On a match of a component
// entryLocations tells of the last one, as FindEntry.
FoundEntry LookupPath(std::string_view path);

}  // namespace media_adapter

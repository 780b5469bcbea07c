// Listing a directory for the application.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "protocol/status_code.h"

namespace media_adapter {

struct DirectoryListing {
  // The row behind the last one in use has number 0.
  std::array<ListingEntry, MEDIA_ADAPTER_MAX_LISTING + 1> rows{};
  uint32_t count = 0;

  std::span<const ListingEntry> RowsAndEnd() const { return std::span(rows).first(count + 1); }
};
extern DirectoryListing directoryListing;

// Fills directoryListing with the entries of the directory that starts at `dirCluster` (0: the root), in directory
// order. Returns 0; 242 beyond 511 entries, with the first 511 in the table; or the status of a failed read.
StatusCode ListDirectory(uint32_t dirCluster);

}  // namespace media_adapter

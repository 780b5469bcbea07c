// Scanning a directory for its short entries, with the long name that stands before each collected on the way. Listing
// and look-up run on it. Every slot of every sector is looked at: a never-used slot ends nothing.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "fat/dir_entry.h"
#include "protocol/status_code.h"

namespace media_adapter {

// The long name in front of the entry that is being scanned. Neither its checksum nor its order is checked.
struct LongNameParts {
  std::array<std::array<char, kLongNamePartSize>, kMaxOrdinal> parts{};  // by ordinal - 1
  uint8_t pendingCount = 0;  // 0: none; else the ordinal of the first entry met, which counts them
};
extern LongNameParts longNameParts;

// Where the slots of one name lie: place 0 is its short entry, place k its long-name entry with ordinal k. A place that
// a broken run of long-name entries left open has isKnown false.
struct EntryLocations {
  std::array<SlotLocation, kMaxOrdinal + 1> places{};
  std::array<bool, kMaxOrdinal + 1> isKnown{};

  void Set(size_t k, SlotLocation location) {
    places[k] = location;
    isKnown[k] = true;
  }
};
extern EntryLocations entryLocations;

// Returns true to end the scan.
using ShortEntryVisitor = std::function<bool(DirSlot entry, const SlotLocation& location)>;

// Visits the short entries of the directory that starts at `dirCluster` (0: the root), "." and ".." among them, until
// the visitor or the directory ends the scan. Returns 0, or the status of a failed read.
StatusCode ScanShortEntries(uint32_t dirCluster, const ShortEntryVisitor& visit);

// The long name collected, at most 255 characters.
std::string LongName();

enum class CaseFlags : uint8_t { Ignored, Applied };
// The 8.3 name of a short entry, spaces left out; in lower case where its case flags say so.
std::string ShortName(DirSlot entry, CaseFlags caseFlags);
// The same of the bare 11 bytes.
std::string ShortNameOf(std::span<const uint8_t> name11);

uint32_t FirstClusterOf(DirSlot entry);

}  // namespace media_adapter

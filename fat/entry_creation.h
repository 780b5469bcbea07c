// Making directory entries: reserving slots for a name and writing its short entry with the long-name entries before
// it, or rewriting the short entry of a file that is overwritten.
//
// For a new name: EntriesNeededForName, FindFreeDirEntries, then WriteEntrySet. For an existing one: FindEntry, then
// WriteEntrySet with NameUse::Existing. The FAT cache must hold nothing unwritten.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/local_files.h"
#include "protocol/status_code.h"

namespace media_adapter {

// Reserves `count` (1 to 21) consecutive free slots in the directory that starts at `dirCluster` (0: the root), which
// may grow, and notes them in entryLocations, the last as place 0. Returns 0; 239 when there is no room and the
// directory cannot grow; 249 or 251 as GrowDirectory; or the status of an exchange. The slots themselves stay as they
// are.
StatusCode FindFreeDirEntries(uint32_t dirCluster, size_t count);

enum class NameUse : uint8_t {
  New,
  Existing,  // the entry keeps its name, its long-name entries and its creation time
};

struct NewEntry {
  std::string name{};                                  // at most 258 characters
  std::optional<platform::LocalFileInfo> localFile{};  // the file that it copies; without one, a directory is made
  uint32_t size = 0;                                   // bytes
  uint32_t firstCluster = 0;                           // ignored for an empty file
  uint32_t dirCluster = 0;                             // of the directory that holds it
  size_t entryCount = 1;                               // slots in entryLocations
  NameUse nameUse = NameUse::New;
};

// Writes the entry's slots, each of their sectors read and written once, the short entry's sector first. Returns 0; 238
// when every alias is taken, nothing written; or the status of an exchange, with the sectors before it written.
StatusCode WriteEntrySet(const NewEntry& newEntry);

}  // namespace media_adapter

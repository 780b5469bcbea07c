// One row of a folder's listing: what it says of a file or folder, and the forms in which that is shown.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "api/media_adapter.h"

namespace media_adapter::cli {

// The root, of which no folder holds a row: it has neither name nor time.
ListingEntry RootEntry();

// Raw bytes, not to be printed or used as a local name as they are.
std::string EntryName(const ListingEntry& entry);
bool IsFolder(const ListingEntry& entry);
// "." or "..".
bool IsDotEntry(const ListingEntry& entry);

// False for what no system writes: the space of the folder held something else before.
bool IsPossible(const ListingEntry& entry);

// "drhsa", a "-" for what the entry is not.
std::string AttributesText(const ListingEntry& entry);
// The last change, "2024-05-06 07:08:10"; "-" for the root.
std::string TimeText(const ListingEntry& entry);
// The time that a copy of it gets here; none for the root.
std::optional<std::chrono::sys_seconds> EntryTime(const ListingEntry& entry);

// 1536 as "1.5K", rounded up as ls does.
std::string ShortSize(uint64_t bytes);

}  // namespace media_adapter::cli

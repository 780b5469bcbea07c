// Whether a local file and one on a volume are the same, and which of them is newer: what get, put and sync decide by.
// A volume keeps the time that the clock on the wall showed, in steps of two seconds and without a time zone. So two
// files of one size are the same when a copy of either would have the other's time; that also holds for the hours that
// a change of the clock skips or repeats. Nothing of the contents is read.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>

#include "api/media_adapter.h"
#include "platform/clock.h"

namespace media_adapter::cli {

// Year, month, day, hour, minute, second.
using WallTime = std::array<uint16_t, 6>;

struct LocalState {
  uint64_t size = 0;
  std::filesystem::file_time_type time;
  WallTime stored{};  // what a copy on a volume gets

  bool operator==(const LocalState&) const = default;
};

// None when there is no regular file. Links are followed.
std::optional<LocalState> LookAt(const std::filesystem::path& local);

// What the library makes of a local file's time.
WallTime StoredTime(const platform::LocalTime& time);

// The same of an entry.
WallTime ListedTime(const ListingEntry& entry);

// The time that a local copy gets: the entry's, in this machine's time zone. A month or day of 0, which some devices
// write, counts as 1, as it does to PCs.
std::time_t TimeOfCopy(const ListingEntry& entry);

enum class Comparison : uint8_t { Same, LocalIsNewer, DeviceIsNewer, Different };

Comparison Compare(const LocalState& local, const ListingEntry& entry);

}  // namespace media_adapter::cli

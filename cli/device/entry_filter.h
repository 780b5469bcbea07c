// Conditions on the rows of listings: what find looks for. Numbers, sizes and times are written and compared as in the
// find of other systems: "+2" is more than two, "-2" less, and sizes are rounded up to the unit first.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/console/wildcards.h"
#include "cli/device/entry.h"

namespace media_adapter::cli {

class EntryFilter {
 public:
  // Each adds a condition; all must hold. False when the text is none.
  bool AddName(std::string_view pattern);
  bool AddNameOfAnyCase(std::string_view pattern);
  bool AddType(std::string_view letter);     // f or d
  bool AddSize(std::string_view text);       // [+-]N[ckMG], of 512 bytes without a letter
  bool AddDays(std::string_view text);       // [+-]N days since the last change
  bool AddMinutes(std::string_view text);    // [+-]N minutes since then
  bool AddNewerThan(std::string_view text);  // "2024-05-06", "2024-05-06 07:08" or "2024-05-06 07:08:10"

  bool Matches(const ListingEntry& entry, std::chrono::sys_seconds now) const;

 private:
  struct Bound {
    char sign = 0;
    uint64_t number = 0;
    uint64_t unit = 1;
    bool Holds(uint64_t value) const;
  };
  static std::optional<Bound> ReadBound(std::string_view text, uint64_t unit);

  std::vector<NamePattern> names_;
  std::vector<bool> types_;  // true for folders
  std::vector<Bound> sizes_, ages_;
  std::vector<std::chrono::sys_seconds> newerThan_;
};

}  // namespace media_adapter::cli

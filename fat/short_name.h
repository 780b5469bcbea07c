// The rules of 8.3 names: when a name is one, how it is stored, and the alias of a name that is not.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "fat/dir_entry.h"

namespace media_adapter {

using ShortName11 = std::array<uint8_t, kShortNameSize>;  // base and extension, space-padded, in upper case

inline constexpr int kMaxAliases = 99;  // an alias ends in ~1 to ~99

// The directory entries that a name needs: 1 for a plain 8.3 name, else its long-name entries and one.
size_t EntriesNeededForName(std::string_view name);

struct PlainName {
  ShortName11 name;
  uint8_t caseFlags;
};
// How a plain 8.3 name is stored.
PlainName StorePlainName(std::string_view name);

// The number-th alias (1 to kMaxAliases) of a name that needs long-name entries: up to six characters and ~1 to ~9,
// then one character less and ~10 to ~99.
ShortName11 MakeAlias(std::string_view name, int number);

// The checksum of a short name that its long-name entries carry.
uint8_t ShortNameChecksum(const ShortName11& name);

}  // namespace media_adapter

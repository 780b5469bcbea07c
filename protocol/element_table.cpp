#include "protocol/element_table.h"

#include <algorithm>
#include <array>

#include "protocol/little_endian.h"

namespace media_adapter {
namespace {

using enum ElementForm;
using enum ElementCheck;

constexpr uint16_t kNone = kNoOffset;
constexpr bool kRead = true, kWritten = true, kNever = false;

constexpr std::array<uint8_t, 7> kRateCodes = {16, 32, 48, 49, 50, 64, 65};
constexpr std::array<uint8_t, 5> kModeCodes = {0, 1, 2, 16, 32};

// The ranges of (2,1), (8,1), (8,4) and (8,5) and the width of (8,0) are the limits of IEEE 802.11-1999 for 2.4 GHz
// channels, fragmentation and RTS thresholds, and network names.
constexpr ElementRow kTable[] = {
    // element  form     sizes      config  read   written   entry  check
    {0, 0, Text, 0, 16, 0, kRead, kWritten, 17},
    {0, 1, Bytes, 0, 4, 16, kRead, kNever, 33},
    {0, 2, Text, 0, 16, 20, kRead, kNever, 0},
    {1, 0, Address, 4, 4, 36, kRead, kWritten, 71},
    {1, 1, Address, 4, 4, 40, kRead, kWritten, kNone},
    {1, 2, Address, 4, 4, 44, kRead, kWritten, kNone},
    {1, 3, Number, 1, 1, 48, kRead, kWritten, kNone, Range, 1, 2},
    {1, 4, Number, 1, 1, 49, kRead, kWritten, kNone, Range, 1, 2},
    {1, 5, Number, 1, 1, 50, kRead, kWritten, kNone, Range, 0, 1},
    {1, 8, Number, 1, 1, 51, kRead, kWritten, kNone, Range, 0, 1},
    {1, 9, Number, 1, 1, 52, kRead, kWritten, kNone, Range, 0, 1},
    {1, 10, Number, 1, 1, 53, kRead, kWritten, kNone, Range, 0, 1},
    {2, 0, Bytes, 6, 6, 56, kRead, kWritten, kNone},
    {2, 1, Number, 1, 1, 62, kRead, kWritten, kNone, Range, 1, 14},
    {2, 2, Number, 1, 1, 63, kRead, kWritten, kNone, OneOf, 0, 0, kRateCodes},
    {2, 3, Number, 4, 4, 64, kRead, kWritten, kNone},
    {2, 4, Text, 0, 32, 68, kRead, kWritten, kNone},
    {2, 5, Number, 4, 4, 100, kRead, kWritten, kNone},
    {2, 6, Text, 0, 32, 104, kRead, kWritten, kNone},
    {2, 7, Number, 4, 4, 136, kRead, kWritten, kNone},
    {4, 0, Bytes, 64, 64, 140, kRead, kNever, kNone},
    {4, 1, Bytes, 56, 56, 204, kRead, kNever, kNone},
    {4, 2, Bytes, 88, 88, 260, kRead, kNever, kNone},
    {8, 0, Text, 0, 32, 348, kRead, kWritten, 38},
    {8, 1, Number, 1, 1, 380, kRead, kWritten, 70, Range, 1, 14},
    {8, 2, Number, 1, 1, 381, kRead, kWritten, kNone, Range, 0, 1},
    {8, 3, Number, 1, 1, 382, kRead, kWritten, kNone, Range, 0, 1},
    {8, 4, Number, 2, 2, 384, kRead, kWritten, kNone, Range, 256, 2346},
    {8, 5, Number, 2, 2, 386, kRead, kWritten, kNone, Range, 0, 2347},
    {8, 6, Number, 1, 1, kNone, kNever, kNever, 37, OneOf, 0, 0, kRateCodes},
    {8, 7, Number, 1, 1, 388, kRead, kWritten, kNone, Range, 1, 4},
    {8, 8, Number, 2, 2, 390, kRead, kWritten, kNone, Range, 20, 1000},
    {8, 9, Bytes, 6, 6, 392, kRead, kWritten, kNone},
    {8, 10, Number, 4, 4, 398, kRead, kWritten, kNone},
    {8, 11, Number, 1, 1, 402, kRead, kWritten, kNone, Range, 0, 1},
    {8, 12, Number, 1, 1, 403, kRead, kWritten, kNone, Range, 0, 1},
    {8, 13, Number, 1, 1, 404, kRead, kWritten, kNone, Range, 0, 1},
    {8, 14, Number, 1, 1, 405, kRead, kWritten, 16, Range, 1, 10},
    {8, 15, Number, 1, 1, 406, kRead, kWritten, kNone, Range, 0, 1},
    {9, 0, Number, 1, 1, 408, kRead, kWritten, 75, OneOf, 0, 0, kModeCodes},
    {9, 1, Number, 1, 1, 409, kRead, kWritten, kNone, Range, 0, 3},
    {9, 2, Number, 1, 1, 410, kRead, kWritten, kNone, Range, 0, 2},
    {9, 3, Secret, 52, 52, 411, kNever, kWritten, kNone},
    {9, 5, Secret, 64, 64, 463, kNever, kWritten, kNone},
    {9, 6, Bytes, 4, 4, 527, kRead, kWritten, kNone, EachByte, 0, 5},
    {10, 0, List, 228, 228, 532, kRead, kWritten, kNone, ListCount, 0, kMaxListEntries},
    {10, 1, Number, 1, 1, 760, kRead, kWritten, kNone, Range, 0, 2},
    {10, 2, Secret, 24, 24, 764, kNever, kWritten, kNone},
    {10, 3, Secret, 24, 24, 788, kNever, kWritten, kNone},
    {14, 0, Number, 1, 1, 812, kRead, kWritten, kNone, Range, 1, 3},
    {14, 1, Bytes, 56, 56, 813, kRead, kWritten, kNone},
    {14, 2, Bytes, 14, 14, 869, kRead, kWritten, kNone},
    {14, 3, Bytes, 64, 64, 883, kRead, kWritten, kNone},
    {14, 4, Number, 4, 4, 948, kRead, kWritten, kNone, Range, 0, 3},
};

// What the checks below read is there in every value of a size that its row allows.
consteval bool HasEveryCheckItsBytes() {
  return std::ranges::all_of(kTable, [](const ElementRow& row) {
    const bool isFixed = row.minSize == row.maxSize;
    if (row.check == Range) return isFixed && (row.minSize == 1 || row.minSize == 2 || row.minSize == 4);
    if (row.check == OneOf) return isFixed && row.minSize == 1;
    return row.check != ListCount || row.minSize >= kListCountSize;
  });
}
static_assert(HasEveryCheckItsBytes());

uint32_t NumberOf(std::span<const uint8_t> value) {
  switch (value.size()) {
    case 1:
      return value[0];
    case 2:
      return ReadU16(value, 0);
    default:
      return ReadU32(value, 0);
  }
}

}  // namespace

std::span<const ElementRow> ElementTable() { return kTable; }

const ElementRow* FindElement(uint8_t elementClass, uint8_t index) {
  const auto row = std::ranges::find_if(
      kTable, [=](const ElementRow& r) { return r.elementClass == elementClass && r.index == index; });
  return row == std::end(kTable) ? nullptr : row;
}

bool IsValidValue(const ElementRow& row, std::span<const uint8_t> value) {
  if (value.size() < row.minSize || value.size() > row.maxSize) return false;
  switch (row.check) {
    case ElementCheck::None:
      return true;
    case ElementCheck::Range:
      return NumberOf(value) >= row.low && NumberOf(value) <= row.high;
    case ElementCheck::OneOf:
      return std::ranges::find(row.codes, value[0]) != row.codes.end();
    case ElementCheck::EachByte:
      return std::ranges::all_of(value, [&](uint8_t byte) { return byte <= row.high; });
    case ElementCheck::ListCount:
      break;
  }
  const uint32_t count = ReadU32(value, 0);
  return count <= row.high || count == kNoList;
}

}  // namespace media_adapter

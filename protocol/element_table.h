// The table of a device's settings: one row an element, with what a reply must look like, where the value stands in the
// settings image and in a search entry, and who may read or write it. Checking, reading, writing and searching all run
// on it; nothing else in the tree knows an element by its number.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace media_adapter {

// How a value is to be understood. The library treats all but Text, List and Secret alike: as bytes to move.
enum class ElementForm : uint8_t {
  Text,     // raw bytes up to the field's width, zero-filled in a record, without terminator
  Number,   // little-endian
  Address,  // IPv4, first octet first
  Bytes,
  List,    // u32 count, then kListEntrySize bytes an entry
  Secret,  // bytes, enciphered under the password on the wire, never read back
};

enum class ElementCheck : uint8_t {
  None,
  Range,      // the value, a little-endian number, lies in [low, high]
  OneOf,      // the value, one byte, is one of `codes`
  EachByte,   // no byte is above `high`
  ListCount,  // the list's count is at most `high`, or kNoList
};

inline constexpr uint16_t kNoOffset = 0xFFFF;
inline constexpr uint32_t kNoList = 0xFFFFFFFF;  // a list count that is stored as 0
inline constexpr uint32_t kMaxListEntries = 32;
inline constexpr uint32_t kListCountSize = 4;
inline constexpr uint32_t kListEntrySize = 6;

struct ElementRow {
  uint8_t elementClass;
  uint8_t index;
  ElementForm form;
  uint16_t minSize;
  uint16_t maxSize;       // also the field's width in the records
  uint16_t configOffset;  // in ConfigurationData, kNoOffset when it has no place there
  bool isRead;            // a reply to GetConfiguration stores it
  bool isWritten;         // SetConfiguration can send it
  uint16_t entryOffset;   // in DeviceEntry, kNoOffset when a search does not store it
  ElementCheck check = ElementCheck::None;
  uint32_t low = 0;
  uint32_t high = 0;
  std::span<const uint8_t> codes = {};
};

// All rows, in ascending order of class and index.
std::span<const ElementRow> ElementTable();

// The row of an element, or null when the table does not list it.
const ElementRow* FindElement(uint8_t elementClass, uint8_t index);

// True when `value` may stand in a reply: its size and its value keep to the row.
bool IsValidValue(const ElementRow& row, std::span<const uint8_t> value);

}  // namespace media_adapter

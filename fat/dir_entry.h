// The 32-byte slots of a directory, as the FAT on-disk format lays them out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "protocol/little_endian.h"

namespace media_adapter {

inline constexpr size_t kDirEntrySize = 32;

// The short entry.
inline constexpr size_t kNameOffset = 0;  // 8 bytes, space-padded, then 3 of extension
inline constexpr size_t kBaseSize = 8;
inline constexpr size_t kExtensionSize = 3;
inline constexpr size_t kShortNameSize = kBaseSize + kExtensionSize;
inline constexpr size_t kAttributesOffset = 11;
inline constexpr size_t kCaseFlagsOffset = 12;
inline constexpr size_t kCreationTimeOffset = 14;
inline constexpr size_t kCreationDateOffset = 16;
inline constexpr size_t kAccessDateOffset = 18;
inline constexpr size_t kClusterHighOffset = 20;
inline constexpr size_t kWriteTimeOffset = 22;
inline constexpr size_t kWriteDateOffset = 24;
inline constexpr size_t kClusterLowOffset = 26;
inline constexpr size_t kSizeOffset = 28;

// The first byte of a slot.
inline constexpr uint8_t kNeverUsed = 0x00;
inline constexpr uint8_t kDeleted = 0xE5;
inline constexpr uint8_t kStoredE5 = 0x05;  // stands for a name's own first byte 0xE5

inline constexpr uint8_t kReadOnlyAttribute = 0x01;
inline constexpr uint8_t kHiddenAttribute = 0x02;
inline constexpr uint8_t kSystemAttribute = 0x04;
inline constexpr uint8_t kVolumeLabelAttribute = 0x08;
inline constexpr uint8_t kDirectoryAttribute = 0x10;
inline constexpr uint8_t kArchiveAttribute = 0x20;
inline constexpr uint8_t kLongNameAttribute = 0x0F;

inline constexpr uint8_t kLowerCaseBase = 0x08;
inline constexpr uint8_t kLowerCaseExtension = 0x10;

// The long-name entry: 13 characters of 16 bits each. Their places in the slot:
inline constexpr size_t kLongNameOffsets[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
inline constexpr size_t kLongNamePartSize = 13;
inline constexpr size_t kOrdinalOffset = 0;  // bits 0-5, and kLastLongName on the highest
inline constexpr size_t kChecksumOffset = 13;
inline constexpr uint8_t kOrdinalMask = 0x3F;
inline constexpr uint8_t kLastLongName = 0x40;
inline constexpr uint8_t kMaxOrdinal = 20;

using DirSlot = std::span<const uint8_t>;

enum class SlotClass : uint8_t { LongName, Empty, Short };

inline SlotClass ClassOf(DirSlot slot) {
  const uint8_t attributes = slot[kAttributesOffset];
  if ((attributes & kLongNameAttribute) == kLongNameAttribute) return SlotClass::LongName;
  const bool isFree = slot[0] == kNeverUsed || slot[0] == kDeleted;
  return isFree || attributes == kVolumeLabelAttribute ? SlotClass::Empty : SlotClass::Short;
}

// Where a slot lies on the device.
struct SlotLocation {
  uint32_t sector = 0;
  uint32_t offset = 0;  // in the sector
};

}  // namespace media_adapter

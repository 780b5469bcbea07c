#include "fat/directory_scan.h"

#include <algorithm>

#include "fat/device_path.h"
#include "fat/directory_sectors.h"
#include "fat/volume.h"

namespace media_adapter {
namespace {

constexpr size_t kMaxLongName = 255;
constexpr uint8_t kPadding = 0xFF;

void CollectLongName(DirSlot slot, const SlotLocation& location) {
  LongNameParts& name = longNameParts;
  const uint8_t ordinal = slot[kOrdinalOffset] & kOrdinalMask;
  if (ordinal == 0 || ordinal > kMaxOrdinal) {
    name.pendingCount = 0;
    return;
  }
  if (name.pendingCount == 0 || (slot[kOrdinalOffset] & kLastLongName) != 0) {
    // What an earlier run left, though nothing came behind it, must not fill the gaps of this one.
    name = {.pendingCount = ordinal};
    entryLocations.isKnown = {};
  }
  auto& part = name.parts[ordinal - 1U];
  for (size_t i = 0; i < part.size(); ++i) {
    const uint8_t character = slot[kLongNameOffsets[i]];
    part[i] = character == kPadding ? ' ' : static_cast<char>(character);
  }
  entryLocations.Set(ordinal, location);
}

// Visits the slots of the sector that was read. True when the visitor ended the scan.
bool ScanSector(uint32_t sector, const ShortEntryVisitor& visit) {
  for (uint32_t offset = 0; offset < kSectorSize; offset += kDirEntrySize) {
    const DirSlot slot = WorkingSector().subspan(offset, kDirEntrySize);
    const SlotLocation location{sector, offset};
    const SlotClass slotClass = ClassOf(slot);
    if (slotClass == SlotClass::LongName) {
      CollectLongName(slot, location);
      continue;
    }
    if (slotClass == SlotClass::Short && visit(slot, location)) return true;
    longNameParts.pendingCount = 0;
  }
  return false;
}

void AppendWithoutSpaces(std::string& text, std::span<const uint8_t> bytes, bool isLowerCase) {
  for (const uint8_t byte : bytes) {
    const char c = static_cast<char>(byte);
    if (c != ' ') text += isLowerCase ? ToLower(c) : c;
  }
}

// A name ends where a zero byte stands in it.
void EndAtZero(std::string& name) { name.resize(std::min(name.size(), name.find('\0'))); }

std::string DisplayName(std::span<const uint8_t> name11, uint8_t caseFlags) {
  std::array<uint8_t, kBaseSize> base{};
  std::ranges::copy(name11.first(kBaseSize), base.begin());
  if (base[0] == kStoredE5) base[0] = kDeleted;
  const auto extension = name11.subspan(kBaseSize, kExtensionSize);

  std::string name;
  AppendWithoutSpaces(name, base, (caseFlags & kLowerCaseBase) != 0);
  if (std::ranges::any_of(extension, [](uint8_t byte) { return byte != ' '; })) {
    name += '.';
    AppendWithoutSpaces(name, extension, (caseFlags & kLowerCaseExtension) != 0);
  }
  EndAtZero(name);
  return name;
}

}  // namespace

LongNameParts longNameParts;
EntryLocations entryLocations;

StatusCode ScanShortEntries(uint32_t dirCluster, const ShortEntryVisitor& visit) {
  longNameParts.pendingCount = 0;
  DirectorySectors directory(dirCluster);
  while (directory.HasNext()) {
    if (const StatusCode status = directory.Next(); status != MEDIA_ADAPTER_OK) return status;
    if (ScanSector(directory.Sector(), visit)) break;
  }
  return MEDIA_ADAPTER_OK;
}

std::string LongName() {
  std::string name;
  for (size_t i = 0; i < longNameParts.pendingCount; ++i) {
    name.append(longNameParts.parts[i].begin(), longNameParts.parts[i].end());
  }
  name.resize(std::min(name.size(), kMaxLongName));
  EndAtZero(name);
  return name;
}

std::string ShortName(DirSlot entry, CaseFlags caseFlags) {
  return DisplayName(entry.first(kShortNameSize), caseFlags == CaseFlags::Applied ? entry[kCaseFlagsOffset] : 0);
}

std::string ShortNameOf(std::span<const uint8_t> name11) { return DisplayName(name11, 0); }

uint32_t FirstClusterOf(DirSlot entry) {
  const uint32_t low = ReadU16(entry, kClusterLowOffset);
  if (fatVolume.fatType == FatType::Fat16) return low;
  return static_cast<uint32_t>(ReadU16(entry, kClusterHighOffset)) << 16 | low;
}

}  // namespace media_adapter

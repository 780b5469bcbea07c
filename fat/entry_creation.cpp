#include "fat/entry_creation.h"

#include <algorithm>

#include "fat/directory_scan.h"
#include "fat/directory_sectors.h"
#include "fat/path_lookup.h"
#include "fat/sector_buffers.h"
#include "fat/short_name.h"

namespace media_adapter {
namespace {

using Entry = std::span<uint8_t>;

constexpr uint16_t kFirstYear = 1980;
constexpr uint16_t kLastYear = 2107;
constexpr uint8_t kKeptAttributes =
    kReadOnlyAttribute | kHiddenAttribute | kSystemAttribute | kDirectoryAttribute | kArchiveAttribute;

// The nearest time that an entry can hold.
platform::LocalTime Nearest(platform::LocalTime time) {
  if (time.year < kFirstYear) return {.year = kFirstYear};
  if (time.year > kLastYear) return {kLastYear, 12, 31, 23, 59, 59};
  time.second = std::min<uint8_t>(time.second, 59);  // not a leap second
  return time;
}

uint16_t PackDate(const platform::LocalTime& time) {
  return static_cast<uint16_t>((time.year - kFirstYear) * 512 + time.month * 32 + time.day);
}

uint16_t PackTime(const platform::LocalTime& time) {
  return static_cast<uint16_t>(time.hour * 2048 + time.minute * 32 + time.second / 2);
}

// A run of free slots on its way through the sectors of a directory.
struct FreeRun {
  size_t wanted;
  size_t missing = wanted;
  bool behindLongName = false;

  // Notes the free slots of the sector that was read. True once all of the run are found.
  bool Collect(uint32_t sector) {
    for (uint32_t offset = 0; offset < kSectorSize; offset += kDirEntrySize) {
      const DirSlot slot = WorkingSector().subspan(offset, kDirEntrySize);
      const bool isFree = slot[0] == kNeverUsed || slot[0] == kDeleted;
      // A long-name entry with nothing behind it is nobody's, and must not give its name to what comes here.
      if (!isFree || behindLongName) {
        behindLongName = !isFree && ClassOf(slot) == SlotClass::LongName;
        missing = wanted;
        continue;
      }
      entryLocations.Set(--missing, {sector, offset});
      if (missing == 0) return true;
    }
    return false;
  }
};

// Searches the directory for an alias that nobody has. The search uses the working sector and entryLocations; both are
// what they were when it returns 0 or 238.
StatusCode ChooseAlias(const NewEntry& newEntry, ShortName11& alias) {
  const EntryLocations reserved = entryLocations;
  CopyBytes(WorkingSector(), SecondSector());
  for (int number = 1; number <= kMaxAliases; ++number) {
    alias = MakeAlias(newEntry.name, number);
    const FoundEntry taken = FindEntry(newEntry.dirCluster, ShortNameOf(alias), MatchNames::Short);
    if (taken.status != MEDIA_ADAPTER_OK) return taken.status;
    if (taken.isFound) continue;
    CopyBytes(SecondSector(), WorkingSector());
    entryLocations = reserved;
    return MEDIA_ADAPTER_OK;
  }
  return MEDIA_ADAPTER_NO_UNIQUE_SHORT_NAME;
}

StatusCode SetName(const NewEntry& newEntry, Entry entry) {
  PlainName stored{};
  if (newEntry.entryCount == 1) {
    stored = StorePlainName(newEntry.name);
  } else if (const StatusCode status = ChooseAlias(newEntry, stored.name); status != MEDIA_ADAPTER_OK) {
    return status;
  }
  std::ranges::fill(entry, uint8_t{0});
  std::ranges::copy(stored.name, entry.begin());
  entry[kCaseFlagsOffset] = stored.caseFlags;
  return MEDIA_ADAPTER_OK;
}

void SetTimes(const NewEntry& newEntry, Entry entry) {
  const platform::LocalTime now = Nearest(platform::CurrentLocalTime());
  if (newEntry.nameUse == NameUse::New) {
    WriteU16(entry, kCreationTimeOffset, PackTime(now));
    WriteU16(entry, kCreationDateOffset, PackDate(now));
  }
  WriteU16(entry, kAccessDateOffset, PackDate(now));
  const platform::LocalTime lastWrite = newEntry.localFile ? Nearest(newEntry.localFile->lastWrite) : now;
  WriteU16(entry, kWriteTimeOffset, PackTime(lastWrite));
  WriteU16(entry, kWriteDateOffset, PackDate(lastWrite));
}

StatusCode BuildShortEntry(const NewEntry& newEntry, Entry entry) {
  if (newEntry.nameUse == NameUse::New) {
    if (const StatusCode status = SetName(newEntry, entry); status != MEDIA_ADAPTER_OK) return status;
  }
  const uint8_t attributes =
      newEntry.localFile ? newEntry.localFile->attributes & kKeptAttributes : kDirectoryAttribute;
  entry[kAttributesOffset] = attributes;
  SetTimes(newEntry, entry);

  const bool hasCluster = newEntry.size != 0 || (attributes & kDirectoryAttribute) != 0;
  const uint32_t firstCluster = hasCluster ? newEntry.firstCluster : 0;
  WriteU16(entry, kClusterHighOffset, static_cast<uint16_t>(firstCluster >> 16));
  WriteU16(entry, kClusterLowOffset, static_cast<uint16_t>(firstCluster));
  WriteU32(entry, kSizeOffset, newEntry.size);
  return MEDIA_ADAPTER_OK;
}

// The long-name entry with ordinal `k` of a name that has `count` of them.
void BuildLongNameEntry(size_t k, size_t count, std::string_view name, uint8_t checksum, Entry entry) {
  const std::string_view part = name.substr((k - 1) * kLongNamePartSize, kLongNamePartSize);
  std::ranges::fill(entry, uint8_t{0});
  entry[kOrdinalOffset] = static_cast<uint8_t>(k == count ? k | kLastLongName : k);
  entry[kAttributesOffset] = kLongNameAttribute;
  entry[kChecksumOffset] = checksum;
  for (size_t i = 0; i < kLongNamePartSize; ++i) {
    uint16_t unit = 0xFFFF;  // behind the terminator
    if (i < part.size()) unit = static_cast<uint8_t>(part[i]);
    if (i == part.size()) unit = 0;
    WriteU16(entry, kLongNameOffsets[i], unit);
  }
}

ShortName11 NameIn(Entry entry) {
  ShortName11 name;
  std::ranges::copy(entry.first(kShortNameSize), name.begin());
  return name;
}

}  // namespace

StatusCode FindFreeDirEntries(uint32_t dirCluster, size_t count) {
  DirectorySectors directory(dirCluster);
  FreeRun run{count};
  for (;;) {
    StatusCode status = directory.HasNext() ? StatusCode{MEDIA_ADAPTER_OK} : directory.Grow();
    if (status == MEDIA_ADAPTER_OK) status = directory.Next();
    if (status != MEDIA_ADAPTER_OK) return status;
    if (run.Collect(directory.Sector())) return MEDIA_ADAPTER_OK;
  }
}

StatusCode WriteEntrySet(const NewEntry& newEntry) {
  // Only the short entry of an existing name is written.
  const size_t slots = newEntry.nameUse == NameUse::New ? newEntry.entryCount : 1;
  uint8_t checksum = 0;
  for (size_t i = 0; i < slots;) {
    const uint32_t sector = entryLocations.places[i].sector;
    if (const StatusCode status = ReadSector(sector); status != MEDIA_ADAPTER_OK) return status;
    for (; i < slots && entryLocations.places[i].sector == sector; ++i) {
      const Entry entry = WorkingSector().subspan(entryLocations.places[i].offset, kDirEntrySize);
      if (i > 0) {
        BuildLongNameEntry(i, slots - 1, newEntry.name, checksum, entry);
        continue;
      }
      if (const StatusCode status = BuildShortEntry(newEntry, entry); status != MEDIA_ADAPTER_OK) return status;
      checksum = ShortNameChecksum(NameIn(entry));
    }
    if (const StatusCode status = WriteSector(sector); status != MEDIA_ADAPTER_OK) return status;
  }
  return MEDIA_ADAPTER_OK;
}

}  // namespace media_adapter

#include "fat/directory_listing.h"

#include <algorithm>

#include "fat/directory_scan.h"
#include "fat/sector_buffers.h"

namespace media_adapter {
namespace {

constexpr uint16_t kFirstYear = 1980;

void FillRow(ListingEntry& row, DirSlot entry) {
  const uint16_t time = ReadU16(entry, kWriteTimeOffset);
  const uint16_t date = ReadU16(entry, kWriteDateOffset);
  const std::string name = longNameParts.pendingCount != 0 ? LongName() : ShortName(entry, CaseFlags::Applied);
  row = {.number = directoryListing.count,
         .name = {},
         .attributes = entry[kAttributesOffset],
         .second = static_cast<uint16_t>((time & 31) * 2),
         .minute = static_cast<uint16_t>((time >> 5) & 63),
         .hour = static_cast<uint16_t>(time >> 11),
         .day = static_cast<uint16_t>(date & 31),
         .month = static_cast<uint16_t>((date >> 5) & 15),
         .year = static_cast<uint16_t>((date >> 9) + kFirstYear),
         .size = ReadU32(entry, kSizeOffset),
         .firstCluster = FirstClusterOf(entry)};
  std::ranges::copy(name, row.name);
}

}  // namespace

DirectoryListing directoryListing;

StatusCode ListDirectory(uint32_t dirCluster) {
  DirectoryListing& listing = directoryListing;
  listing.count = 0;
  listing.rows[0].number = 0;
  bool isFull = false;
  const auto addRow = [&](DirSlot entry, const SlotLocation&) {
    isFull = listing.count == MEDIA_ADAPTER_MAX_LISTING;
    if (isFull) return true;
    ListingEntry& row = listing.rows[listing.count++];
    FillRow(row, entry);
    listing.rows[listing.count].number = 0;
    return false;
  };
  const StatusCode status = ScanShortEntries(dirCluster, addRow);
  return isFull ? StatusCode{MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES} : status;
}

}  // namespace media_adapter

#include "cli/device/entry.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "cli/device/comparison.h"

namespace media_adapter::cli {

namespace {

constexpr uint8_t kFolderAttribute = 0x10;

}  // namespace

ListingEntry RootEntry() {
  ListingEntry root = {};
  root.attributes = kFolderAttribute;
  return root;
}

std::string EntryName(const ListingEntry& entry) { return {entry.name, strnlen(entry.name, sizeof entry.name)}; }

bool IsFolder(const ListingEntry& entry) { return (entry.attributes & kFolderAttribute) != 0; }

bool IsDotEntry(const ListingEntry& entry) { return EntryName(entry) == "." || EntryName(entry) == ".."; }

bool IsPossible(const ListingEntry& entry) {
  constexpr uint8_t kReserved = 0xC0;
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
  return entry.month <= 12 && entry.hour < 24 && entry.minute < 60 && entry.second < 60 &&
         (entry.attributes & kReserved) == 0 && std::ranges::none_of(EntryName(entry), isControl);
}

std::string AttributesText(const ListingEntry& entry) {
  constexpr std::array<std::pair<uint8_t, char>, 5> kLetters = {
      {{kFolderAttribute, 'd'}, {0x01, 'r'}, {0x02, 'h'}, {0x04, 's'}, {0x20, 'a'}}};
  std::string text;
  for (const auto& [bit, letter] : kLetters) text += (entry.attributes & bit) != 0 ? letter : '-';
  return text;
}

std::string TimeText(const ListingEntry& entry) {
  if (entry.year == 0) return "-";
  std::array<char, 48> text = {};
  std::snprintf(text.data(), text.size(), "%04u-%02u-%02u %02u:%02u:%02u", entry.year, entry.month, entry.day,
                entry.hour, entry.minute, entry.second);
  return text.data();
}

std::optional<std::chrono::sys_seconds> EntryTime(const ListingEntry& entry) {
  const std::time_t seconds = TimeOfCopy(entry);
  if (entry.year == 0 || seconds == -1) return std::nullopt;
  return std::chrono::sys_seconds(std::chrono::seconds(seconds));
}

std::string ShortSize(uint64_t bytes) {
  constexpr std::string_view kUnits = "KMGTPE";
  if (bytes < 1024) return std::to_string(bytes);
  auto value = static_cast<double>(bytes);
  size_t unit = 0;
  for (value /= 1024; std::ceil(value) >= 1024 && unit + 1 < kUnits.size(); value /= 1024) ++unit;
  const bool isSmall = std::ceil(value * 10) < 100;
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), isSmall ? "%.1f%c" : "%.0f%c",
                isSmall ? std::ceil(value * 10) / 10 : std::ceil(value), kUnits[unit]);
  return text.data();
}

}  // namespace media_adapter::cli

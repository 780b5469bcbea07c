#include "cli/device/entry_filter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "cli/device/volume_name.h"

namespace media_adapter::cli {
namespace {

constexpr uint64_t kDay = 24 * 60 * 60;
constexpr uint64_t kMinute = 60;

}  // namespace

bool EntryFilter::Bound::Holds(uint64_t value) const {
  return sign == '+' ? value > number : sign == '-' ? value < number : value == number;
}

std::optional<EntryFilter::Bound> EntryFilter::ReadBound(std::string_view text, uint64_t unit) {
  Bound bound = {.unit = unit};
  if (text.starts_with('+') || text.starts_with('-')) {
    bound.sign = text[0];
    text.remove_prefix(1);
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bound.number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return bound;
}

bool EntryFilter::AddName(std::string_view pattern) {
  names_.emplace_back(pattern, PatternRules{.ignoresCase = false, .hidesDots = false});
  return true;
}

bool EntryFilter::AddNameOfAnyCase(std::string_view pattern) {
  names_.emplace_back(pattern, PatternRules{.ignoresCase = true, .hidesDots = false});
  return true;
}

bool EntryFilter::AddType(std::string_view letter) {
  types_.push_back(letter == "d");
  return letter == "d" || letter == "f";
}

bool EntryFilter::AddSize(std::string_view text) {
  constexpr std::array<std::pair<char, uint64_t>, 5> kUnits = {
      {{'c', 1}, {'b', 512}, {'k', 1024}, {'M', 1024 * 1024}, {'G', 1024 * 1024 * 1024}}};
  uint64_t unit = 512;
  for (const auto& [letter, bytes] : kUnits) {
    if (!text.ends_with(letter)) continue;
    unit = bytes;
    text.remove_suffix(1);
    break;
  }
  const std::optional<Bound> bound = ReadBound(text, unit);
  if (bound) sizes_.push_back(*bound);
  return bound.has_value();
}

bool EntryFilter::AddDays(std::string_view text) {
  const std::optional<Bound> bound = ReadBound(text, kDay);
  if (bound) ages_.push_back(*bound);
  return bound.has_value();
}

bool EntryFilter::AddMinutes(std::string_view text) {
  const std::optional<Bound> bound = ReadBound(text, kMinute);
  if (bound) ages_.push_back(*bound);
  return bound.has_value();
}

bool EntryFilter::AddNewerThan(std::string_view text) {
  // std::get_time takes the beginning of a form for the whole.
  constexpr std::array<std::pair<size_t, const char*>, 5> kForms = {{{10, "%Y-%m-%d"},
                                                                     {16, "%Y-%m-%d %H:%M"},
                                                                     {16, "%Y-%m-%dT%H:%M"},
                                                                     {19, "%Y-%m-%d %H:%M:%S"},
                                                                     {19, "%Y-%m-%dT%H:%M:%S"}}};
  for (const auto& [size, form] : kForms) {
    std::tm time = {};
    std::istringstream stream{std::string(text)};
    const bool isRead = text.size() == size && stream >> std::get_time(&time, form);
    if (!isRead || stream.peek() != std::istringstream::traits_type::eof()) continue;
    time.tm_isdst = -1;
    newerThan_.emplace_back(std::chrono::seconds(std::mktime(&time)));
    return true;
  }
  return false;
}

bool EntryFilter::Matches(const ListingEntry& entry, std::chrono::sys_seconds now) const {
  const std::string name = EntryName(entry).empty() ? "/" : LocalNameFor(EntryName(entry));
  const auto time = EntryTime(entry);
  const uint64_t age = time && now > *time ? static_cast<uint64_t>((now - *time).count()) : 0;
  const auto isName = [&](const NamePattern& pattern) { return pattern.Matches(name); };
  const auto isType = [&](bool isFolder) { return IsFolder(entry) == isFolder; };
  const auto isSize = [&](const Bound& bound) { return bound.Holds((entry.size + bound.unit - 1) / bound.unit); };
  const auto isAge = [&](const Bound& bound) { return time && bound.Holds(age / bound.unit); };
  const auto isNewer = [&](std::chrono::sys_seconds limit) { return time && *time > limit; };
  return std::ranges::all_of(names_, isName) && std::ranges::all_of(types_, isType) &&
         std::ranges::all_of(sizes_, isSize) && std::ranges::all_of(ages_, isAge) &&
         std::ranges::all_of(newerThan_, isNewer);
}

}  // namespace media_adapter::cli

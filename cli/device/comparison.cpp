#include "cli/device/comparison.h"

#include <algorithm>
#include <chrono>

#include "cli/local/local_text.h"
#include "platform/local_files.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

constexpr uint16_t kFirstYear = 1980;
constexpr uint16_t kLastYear = 2107;

// A copy has the time to the second; other tools give files a fraction, or the second between two steps.
bool IsTimeOfCopy(fs::file_time_type time, const ListingEntry& entry) {
  const std::time_t copy = TimeOfCopy(entry);
  if (copy == -1) return false;
  const auto since = std::chrono::file_clock::to_sys(time) - std::chrono::sys_seconds(std::chrono::seconds(copy));
  return since >= std::chrono::seconds(0) && since < std::chrono::seconds(2);
}

}  // namespace

std::optional<LocalState> LookAt(const fs::path& local) {
  std::error_code error;
  if (!fs::is_regular_file(local, error)) return std::nullopt;
  LocalState state;
  state.size = fs::file_size(local, error);
  if (!error) state.time = fs::last_write_time(local, error);
  const std::optional<platform::LocalFileInfo> info = platform::FindLocalFile(LocalText(local));
  if (error || !info) return std::nullopt;
  state.stored = StoredTime(info->lastWrite);
  return state;
}

WallTime StoredTime(const platform::LocalTime& time) {
  if (time.year < kFirstYear) return {kFirstYear, 1, 1, 0, 0, 0};
  if (time.year > kLastYear) return {kLastYear, 12, 31, 23, 59, 58};
  const int second = std::min<int>(time.second, 59);
  return {time.year, time.month, time.day, time.hour, time.minute, static_cast<uint16_t>(second / 2 * 2)};
}

WallTime ListedTime(const ListingEntry& entry) {
  return {entry.year, entry.month, entry.day, entry.hour, entry.minute, entry.second};
}

// The system alone decides by chance about an hour that is skipped or repeated. Here the repeated one is meant the
// second time, and the skipped one lies behind the change, whichever request comes before.
std::time_t TimeOfCopy(const ListingEntry& entry) {
  std::time_t asWinter = -1;
  for (const int isSummer : {0, 1}) {
    std::tm time = {};
    time.tm_year = entry.year - 1900;
    time.tm_mon = std::max<int>(entry.month, 1) - 1;
    time.tm_mday = std::max<int>(entry.day, 1);
    time.tm_hour = entry.hour;
    time.tm_min = entry.minute;
    time.tm_sec = entry.second;
    time.tm_isdst = isSummer;
    const std::time_t result = std::mktime(&time);
    if (result != -1 && time.tm_isdst == isSummer) return result;
    if (isSummer == 0) asWinter = result;
  }
  return asWinter;
}

Comparison Compare(const LocalState& local, const ListingEntry& entry) {
  const WallTime listed = ListedTime(entry);
  const bool hasSameTime = local.stored == listed || IsTimeOfCopy(local.time, entry);
  if (hasSameTime) return local.size == entry.size ? Comparison::Same : Comparison::Different;
  return local.stored > listed ? Comparison::LocalIsNewer : Comparison::DeviceIsNewer;
}

}  // namespace media_adapter::cli

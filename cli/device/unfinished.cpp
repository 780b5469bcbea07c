#include "cli/device/unfinished.h"

#include <algorithm>
#include <fstream>

#include "cli/device/device_path.h"
#include "cli/device/entry.h"
#include "cli/device/session.h"
#include "cli/local/environment.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

// Where programs keep what outlives a run and is no setting; empty when the system does not say.
fs::path StateFolder() {
  if (kIsDosHost) return Variable("LOCALAPPDATA");
  if (fs::path folder = Variable("XDG_STATE_HOME"); folder.is_absolute()) return folder;
  const fs::path home = Variable("HOME");
  return home.empty() ? home : home / LocalPath(".local/state");
}

// Under what a device lists an entry of which a long name's first parts were not written: its short name, or the last
// parts that were, which are the first of the name.
bool IsPartOf(const std::string& listed, const std::string& name) {
  constexpr size_t kPart = 13, kLongestShortName = 12;
  if (listed.find('~') != std::string::npos) return listed.size() <= kLongestShortName;
  return !listed.empty() && listed.size() % kPart == 0 && listed.size() < name.size() && name.starts_with(listed);
}

// What a new folder holds is cleared before its own first entries are written, last of all and with its time. Those
// that a PC has mended have none.
Answer LookInto(Session& session, const std::string& path, const ListingEntry& entry, bool& isHalfMade) {
  const Listing inside = session.List(path);
  if (IsOfDevice(inside.answer)) return inside.answer;
  isHalfMade = true;
  if (inside.entries.empty() || !std::ranges::all_of(inside.entries, IsPossible)) return {MEDIA_ADAPTER_OK, {}};
  const ListingEntry& dot = inside.entries.front();
  const bool isOfItsTime = ListedTime(dot) == ListedTime(entry) || dot.month == 0;
  isHalfMade = !IsDotEntry(dot) || dot.firstCluster != entry.firstCluster || !isOfItsTime;
  return {MEDIA_ADAPTER_OK, {}};
}

}  // namespace

std::string HowToMend(const Unfinished& change) {
  const std::string path = DisplayPath(change.path), before = " before anything else is written to this device";
  switch (change.kind) {
    case Unfinished::Kind::File:
      return path + " may be incomplete: delete it (rm)" + before;
    case Unfinished::Kind::Folder:
    case Unfinished::Kind::Growth:
      return "the folder " + path + " may be incomplete: have the volume checked by a PC, or format it," + before;
    case Unfinished::Kind::Volume:
      break;
  }
  return "the volume may be cleared in part: format it again" + before;
}

Answer LookFor(Session& session, Unfinished& change, bool& isThere) {
  const auto& [kind, path, size, time] = change;
  const bool isInside = kind == Unfinished::Kind::Volume || kind == Unfinished::Kind::Growth;
  const DevicePathParts parts = SplitDevicePath(path);
  const Listing listing = session.List(isInside ? path : parts.folder);
  const bool isTooLong = listing.answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES;
  isThere = isTooLong && kind != Unfinished::Kind::Growth;
  if (isTooLong || listing.answer.status == MEDIA_ADAPTER_INVALID_PATH) return {MEDIA_ADAPTER_OK, {}};
  if (kind == Unfinished::Kind::Growth) {
    const std::ptrdiff_t ownDots = path == kRootPath ? 0 : 2;
    isThere = !std::ranges::all_of(listing.entries, IsPossible) ||
              std::ranges::count_if(listing.entries, IsDotEntry) > ownDots;
  }
  if (kind == Unfinished::Kind::Volume) isThere = !listing.entries.empty();
  if (isInside || !listing.answer.IsOk()) return listing.answer;
  for (const ListingEntry& entry : listing.entries) {
    const std::string name = EntryName(entry);
    const bool hasName = FoldDeviceName(name) == FoldDeviceName(parts.name);
    if (!hasName && !IsPartOf(name, parts.name)) continue;
    if (kind == Unfinished::Kind::File && (entry.size != size || ListedTime(entry) != time)) continue;
    if (kind == Unfinished::Kind::Folder && (!IsFolder(entry) || (!hasName && ListedTime(entry) < time))) continue;
    const std::string found = JoinDevicePath(parts.folder, name);
    isThere = true;
    if (kind == Unfinished::Kind::Folder) {
      if (Answer answer = LookInto(session, found, entry, isThere); !answer.IsOk()) return answer;
    }
    if (isThere) change.path = found;
    if (isThere) break;
  }
  return listing.answer;
}

UnfinishedNote::UnfinishedNote(std::string_view mac) {
  std::string name(mac);
  std::ranges::replace(name, ':', '-');
  if (const fs::path folder = StateFolder(); !folder.empty())
    path_ = folder / LocalPath("media-adapter/" + name + ".unfinished");
}

void UnfinishedNote::Write(const Unfinished& change) const {
  if (path_.empty()) return;
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  std::ofstream note(path_, std::ios::binary | std::ios::trunc);
  note << static_cast<int>(change.kind) << ' ' << change.size;
  for (const uint16_t part : change.time) note << ' ' << part;
  note << ' ' << change.path << '\n';
}

std::optional<Unfinished> UnfinishedNote::Read() const {
  if (path_.empty()) return std::nullopt;
  std::ifstream note(path_, std::ios::binary);
  Unfinished change;
  int kind = -1;
  note >> kind >> change.size;
  for (uint16_t& part : change.time) note >> part;
  note.ignore();
  if (!std::getline(note, change.path) || !change.path.starts_with('\\')) return std::nullopt;
  if (kind < 0 || kind > static_cast<int>(Unfinished::Kind::Growth)) return std::nullopt;
  change.kind = static_cast<Unfinished::Kind>(kind);
  return change;
}

void UnfinishedNote::Remove() const {
  std::error_code error;
  if (!path_.empty()) fs::remove(path_, error);
}

}  // namespace media_adapter::cli

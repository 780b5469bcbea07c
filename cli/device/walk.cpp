#include "cli/device/walk.h"

#include <algorithm>
#include <set>

#include "cli/console/interrupts.h"
#include "cli/device/entry.h"

namespace media_adapter::cli {
namespace {

class Walker {
 public:
  Walker(Session& session, WalkVisitor& visitor) : session_(session), visitor_(visitor) {}

  void Folder(const std::string& folder, std::vector<ListingEntry> entries, size_t depth) {
    // A folder's own first row tells where it lies, but only as truly as the volume is sound.
    if (!entries.empty() && EntryName(entries.front()) == ".") seenFolders_.insert(entries.front().firstCluster);
    visitor_.Enter(folder, entries);
    std::set<std::string> names;
    std::erase_if(entries, [&](const ListingEntry& e) { return IsDotEntry(e) || !IsReachable(folder, e, names); });
    for (const ListingEntry& entry : entries) {
      if (isStopped_ || IsInterrupted()) return;
      const std::string path = JoinDevicePath(folder, EntryName(entry));
      const WalkItem item = {path, entry, depth, &entry == &entries.back()};
      if (visitor_.Visit(item) && IsFolder(entry)) GoInto(item);
    }
  }

 private:
  bool IsReachable(const std::string& folder, const ListingEntry& entry, std::set<std::string>& names) {
    const std::string name = EntryName(entry);
    const std::string path = JoinDevicePath(folder, name);
    const char* problem = nullptr;
    if (name.empty() || name.find_first_of("\\/") != std::string::npos) {
      problem = "skipped: no path leads to a name like this";
    } else if (path.size() > MEDIA_ADAPTER_MAX_PATH) {
      problem = "skipped: the path is too long";
    } else if (!names.insert(FoldDeviceName(name)).second) {
      problem = "skipped: the name stands twice in its folder";
    }
    if (problem != nullptr) visitor_.Fail(path, Problem(problem));
    return problem == nullptr;
  }

  // A sound volume reaches a folder once; one that leads back into itself would never end.
  void GoInto(const WalkItem& item) {
    if (item.entry.firstCluster == 0 || !seenFolders_.insert(item.entry.firstCluster).second) {
      return visitor_.Fail(item.path, Problem("skipped: it leads to a folder that was reached already"));
    }
    Listing listing = session_.List(item.path);
    if (!listing.answer.IsOk()) {
      isStopped_ = IsOfDevice(listing.answer);
      return visitor_.Fail(item.path, listing.answer);
    }
    Folder(item.path, std::move(listing.entries), item.depth + 1);
    if (!isStopped_ && !IsInterrupted()) visitor_.Leave(item);
  }

  Session& session_;
  WalkVisitor& visitor_;
  std::set<uint32_t> seenFolders_;  // first clusters
  bool isStopped_ = false;
};

}  // namespace

void Walk(Session& session, const std::string& folder, Listing listing, WalkVisitor& visitor) {
  if (listing.answer.IsOk()) Walker(session, visitor).Folder(folder, std::move(listing.entries), 1);
}

}  // namespace media_adapter::cli

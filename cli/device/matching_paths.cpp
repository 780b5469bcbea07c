#include "cli/device/matching_paths.h"

#include <algorithm>

#include "cli/console/interrupts.h"
#include "cli/console/wildcards.h"
#include "cli/device/entry.h"
#include "cli/device/volume_name.h"
#include "cli/device/walk.h"

namespace media_adapter::cli {
namespace {

using TakeItems = std::function<void(const FileTree::Items& items)>;

// Hands on the items of each folder of a walk.
class FolderItems : public WalkVisitor {
 public:
  FolderItems(bool isDeep, const TakeItems& take, const OnFailure& fail) : isDeep_(isDeep), take_(take), fail_(fail) {}

  void Enter(const std::string& /*path*/, std::vector<ListingEntry>& /*entries*/) override { around_.emplace_back(); }

  bool Visit(const WalkItem& item) override {
    const std::string name = EntryName(item.entry);
    around_.back().push_back({LocalNameFor(name), item.path, IsFolder(item.entry)});
    return isDeep_ && !name.starts_with('.');
  }

  void Leave(const WalkItem& /*item*/) override { End(); }
  void Fail(const std::string& path, const Answer& answer) override { fail_(path, answer); }

  void End() {
    const FileTree::Items items = std::move(around_.back());
    around_.pop_back();
    take_(items);
  }

 private:
  const bool isDeep_;
  const TakeItems& take_;
  const OnFailure& fail_;
  std::vector<FileTree::Items> around_;  // of the folder that the walk is in, and of those around it
};

class DeviceTree : public FileTree {
 public:
  DeviceTree(Session& session, const OnFailure& fail) : session_(session), fail_(fail) {}

  std::string Join(const std::string& folder, const std::string& name) const override {
    return JoinDevicePath(folder, VolumeNameFor(name).bytes);
  }

  Items List(const std::string& folder) override {
    Items result;
    Go(folder, false, [&](const Items& items) { result = items; });
    return result;
  }

  void ForEachFolder(const std::string& folder, const TakeItems& visit) override { Go(folder, true, visit); }

  std::string Fold(const std::string& text) const override { return FoldDeviceName(text); }
  PatternRules Rules() const override { return {.ignoresCase = true}; }

 private:
  void Go(const std::string& folder, bool isDeep, const TakeItems& take) {
    if (isStopped_ || IsInterrupted()) return;
    Listing listing = session_.List(folder);
    // What is not there matches nothing, and neither does what is in a file.
    const bool isMissing = listing.isFile || listing.answer.status == MEDIA_ADAPTER_INVALID_PATH;
    const OnFailure fail = [&](const std::string& path, const Answer& answer) {
      isStopped_ = isStopped_ || IsOfDevice(answer);
      fail_(path, answer);
    };
    if (!listing.answer.IsOk() && !isMissing) fail(folder, listing.answer);
    if (!listing.answer.IsOk()) return;
    FolderItems visitor(isDeep, take, fail);
    Walk(session_, folder, std::move(listing), visitor);
    visitor.End();
  }

  Session& session_;
  const OnFailure& fail_;
  bool isStopped_ = false;
};

}  // namespace

std::vector<std::string> MatchingPaths(Session& session, std::string_view pattern, const OnFailure& fail) {
  std::vector<std::string> words;
  for (size_t start = 1; start < pattern.size();) {
    const size_t end = std::min(pattern.find('\\', start), pattern.size());
    words.emplace_back(pattern.substr(start, end - start));
    start = end + 1;
  }
  DeviceTree tree(session, fail);
  for (std::string& word : words) word = LocalNameFor(word);
  std::vector<std::string> paths = FindMatches(tree, std::string(kRootPath), std::move(words));
  return paths.empty() ? std::vector{Unquote(pattern)} : paths;
}

}  // namespace media_adapter::cli

#include "cli/commands/getter.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "cli/commands/fetch.h"
#include "cli/commands/items.h"
#include "cli/console/text.h"
#include "cli/device/matching_paths.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

// The time that the device's clock showed when the item was changed, as the local time of this machine.
void CopyTime(const ListingEntry& entry, const fs::path& local) {
  const std::time_t seconds = TimeOfCopy(entry);
  std::error_code error;  // a time that cannot be kept is no reason to lose the file
  if (seconds == -1) return;
  const auto sinceEpoch = std::chrono::sys_seconds(std::chrono::seconds(seconds));
  fs::last_write_time(local, std::chrono::file_clock::from_sys(sinceEpoch), error);
}

constexpr const char* kShortName = "skipped: the local name is a short name of something else";

// Why a file cannot come to lie at `local`, or "". A link is not followed, and a local file is replaced only if it may
// be written.
std::string CheckLocalTarget(const fs::path& local) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(local, error);
  if (!fs::exists(status)) return {};
  if (IsShortName(local)) return kShortName;
  if (fs::is_symlink(status)) return "skipped: the local name is a symbolic link";
  if (fs::is_directory(status)) return "skipped: a local folder has this name";
  if (!fs::is_regular_file(status)) return "skipped: the local name is no regular file";
  return (status.permissions() & fs::perms::owner_write) != fs::perms::none ? ""
                                                                            : "skipped: the local file is read-only";
}

// The same for all names that are one here.
std::string FoldLocalName(const std::string& name) { return kIsDosHost ? FoldDeviceName(name) : name; }

std::string JoinRelative(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

}  // namespace

Getter::Getter(const Context& context, std::string command, const TransferOptions& options, fs::path root)
    : context_(context),
      options_(options),
      root_(std::move(root)),
      exclusions_(options.excluded),
      transfer_(context, std::move(command), Direction::FromDevice, options) {}

std::vector<std::string> Getter::Expand(std::span<const std::string> patterns) {
  const auto fail = [&](const std::string& path, const Answer& answer) { transfer_.Fail({path, {}}, answer); };
  std::vector<std::string> paths;
  for (const std::string& pattern : patterns) {
    if (transfer_.MayGoOn())
      std::ranges::move(MatchingPaths(context_.session, pattern, fail), std::back_inserter(paths));
  }
  return paths;
}

void Getter::Item(const std::string& path, const std::string& newName) {
  if (!transfer_.MayGoOn()) return;
  const Found found = FindItem(context_.session, path);
  const std::string name = newName.empty() ? LocalNameFor(SplitDevicePath(path).name) : newName;
  if (!found.answer.IsOk()) return transfer_.Fail({path, {}}, ExplainMissing(context_.session, path, found.answer));
  if (exclusions_.Has(name, found.isFolder)) return;
  if (found.isFolder && !options_.isRecursive)
    return transfer_.Fail({path, {}}, Problem("a folder; give -r to copy it"));
  if (!name.empty() && !IsSafeLocalName(name)) return transfer_.Fail({path, {}}, Problem("no name for a local file"));
  const fs::path local = root_ / LocalPath(name);
  if (!found.isFolder) return File({false, path, local, found.entry});
  if (found.entry) seenFolders_.insert(found.entry->firstCluster);
  return name.empty() ? Entries(path, root_, {}) : Folder({true, path, local}, name);
}

void Getter::Contents(const std::string& path) {
  std::error_code error;
  if (!fs::exists(root_, error)) steps_.push_back({true, path, root_});
  Entries(path, root_, {});
}

void Getter::File(const Step& step) {
  TransferItem item = {step.path, LocalText(step.local), {}};
  if (step.entry) item.size = step.entry->size;
  if (context_.writer.IsUnfinished(step.path))
    return transfer_.Fail(item, Problem("left incomplete by an earlier run"));
  std::error_code error;
  const bool isPlain = fs::is_regular_file(fs::symlink_status(step.local, error));
  const std::optional<LocalState> local = isPlain ? LookAt(step.local) : std::nullopt;
  const std::string reason = local && step.entry ? transfer_.ReasonToSkip(Compare(*local, *step.entry)) : "";
  if (!reason.empty()) return transfer_.Skip(item, reason);
  if (const std::string problem = CheckLocalTarget(step.local); !problem.empty()) {
    return transfer_.Fail(item, Problem(problem));
  }
  transfer_.Expect(item.size.value_or(0));
  steps_.push_back(step);
}

void Getter::Folder(const Step& step, const std::string& relative) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(step.local, error);
  if (fs::exists(status) && !fs::is_directory(status)) {
    return transfer_.Fail({step.path, LocalText(step.local)}, Problem("skipped: no folder has the local name"));
  }
  if (IsShortName(step.local)) return transfer_.Fail({step.path, LocalText(step.local)}, Problem(kShortName));
  if (!fs::exists(status)) steps_.push_back(step);
  Entries(step.path, step.local, relative);
}

void Getter::Entries(const std::string& path, const fs::path& local, const std::string& relative) {
  transfer_.Look(DisplayPath(path));
  const Listing listing = context_.session.List(path);
  if (!listing.answer.IsOk()) return transfer_.Fail({path, LocalText(local)}, listing.answer);
  std::set<std::string> names, localNames;
  for (const ListingEntry& entry : listing.entries) {
    if (IsDotEntry(entry) || !transfer_.MayGoOn()) continue;
    const std::string name = EntryName(entry);
    const std::string localName = LocalNameFor(name);
    const Step step = {IsFolder(entry), JoinDevicePath(path, name), local / LocalPath(localName), entry};
    localNames.insert(FoldLocalName(localName));
    if (exclusions_.Has(JoinRelative(relative, localName), step.isFolder)) continue;
    if (!IsSafeLocalName(localName)) {
      transfer_.Fail({step.path, {}}, Problem("skipped: no name for a local file"));
    } else if (!names.insert(name).second) {
      transfer_.Fail({step.path, {}}, Problem("skipped: the name stands twice in its folder"));
    } else {
      Entry(step, JoinRelative(relative, localName));
    }
  }
  if (options_.deletes) DeleteOthers(local, relative, localNames);
}

void Getter::Entry(const Step& step, const std::string& relative) {
  if (!step.isFolder) return File(step);
  // A sound volume reaches a folder once; one that leads back into itself would never end.
  const uint32_t cluster = step.entry->firstCluster;
  const bool isNew = cluster != 0 && seenFolders_.insert(cluster).second;
  return isNew ? Folder(step, relative)
               : transfer_.Fail({step.path, {}}, Problem("skipped: a folder that was copied already"));
}

void Getter::DeleteOthers(const fs::path& folder, const std::string& relative, const std::set<std::string>& names) {
  std::error_code error;
  if (!fs::exists(folder, error)) return;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const std::string name = LocalText(entry->path().filename());
    if (!names.contains(FoldLocalName(name))) PlanDeletion(entry->path(), JoinRelative(relative, name));
  }
  if (error) transfer_.Fail({{}, LocalText(folder)}, Problem(ErrorText(error)));
}

// False when something in it is excluded, and stays.
bool Getter::PlanDeletion(const fs::path& local, const std::string& relative) {
  std::error_code error;
  const bool isFolder = fs::is_directory(fs::symlink_status(local, error));
  if (exclusions_.Has(relative, isFolder)) return false;
  bool isWhole = true;
  if (isFolder) {
    for (fs::directory_iterator entry(local, error), end; !error && entry != end; entry.increment(error)) {
      const std::string name = LocalText(entry->path().filename());
      isWhole = PlanDeletion(entry->path(), JoinRelative(relative, name)) && isWhole;
    }
  }
  if (error) transfer_.Fail({{}, LocalText(local)}, Problem(ErrorText(error)));
  if (isWhole) deletions_.push_back(local);
  return isWhole;
}

void Getter::RunDeletions() {
  if (!transfer_.MayDelete(deletions_.size())) return;
  for (const fs::path& local : deletions_) {
    if (!transfer_.MayGoOn()) return;
    transfer_.Delete({{}, LocalText(local)}, [&] {
      std::error_code error;
      fs::remove(local, error);
      return error ? Problem(ErrorText(error)) : Answer{MEDIA_ADAPTER_OK, "deleted"};
    });
  }
}

int Getter::Run(bool isSummaryAlways) {
  RunDeletions();
  std::set<fs::path> missing;  // folders that could not be made
  for (const Step& step : steps_) {
    if (!transfer_.MayGoOn()) break;
    if (missing.contains(step.local.parent_path()) || !RunStep(step)) {
      if (step.isFolder) missing.insert(step.local);
    }
  }
  return transfer_.Finish(isSummaryAlways);
}

bool Getter::RunStep(const Step& step) {
  TransferItem item = {step.path, LocalText(step.local), {}};
  if (step.entry && !step.isFolder) item.size = step.entry->size;
  if (!step.isFolder) return transfer_.Copy(item, context_.session.Progress(), [&] { return Fetch(step); });
  return transfer_.MakeFolder(item, [&] {
    std::error_code error;
    const bool isMade = fs::create_directories(step.local, error);
    return isMade ? Answer{MEDIA_ADAPTER_OK, {}} : Problem(error ? ErrorText(error) : "the local name is in use");
  });
}

Answer Getter::Fetch(const Step& step) {
  if (const std::string problem = CheckLocalTarget(step.local); !problem.empty()) return Problem(problem);
  if (!staging_) staging_.emplace(root_);
  if (staging_->Path().empty()) {
    return Problem("cannot write into " + Escape(LocalText(root_)) + ": " + staging_->Error());
  }
  const fs::path staged = staging_->Use(SplitDevicePath(step.path).name);
  Answer answer = FetchFile(context_, step.path, staging_->Path(), step.entry);
  if (!answer.IsOk()) return answer;
  if (step.entry) CopyTime(*step.entry, staged);
  std::error_code error;
  const fs::file_status replaced = fs::symlink_status(step.local, error);
  if (fs::is_regular_file(replaced)) fs::permissions(staged, replaced.permissions(), error);
  fs::rename(staged, step.local, error);
  return error ? Problem("cannot write " + Escape(LocalText(step.local)) + ": " + ErrorText(error)) : answer;
}

}  // namespace media_adapter::cli

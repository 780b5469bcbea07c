#include "cli/commands/putter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "cli/commands/items.h"
#include "cli/console/text.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kLargestFile = UINT32_MAX;

// What is looked at before the file that it replaces is deleted. The problem, or "".
std::string CheckLocalFile(const fs::path& local, uint64_t size) {
  if (size > kLargestFile) return "larger than 4 GiB - 1, the most that a file on a FAT volume can have";
  errno = 0;
  const bool isReadable = std::ifstream(local, std::ios::binary).is_open();
  return isReadable ? std::string() : std::string("cannot read the local file: ") + std::strerror(errno);
}

// A name of its own for a local file, in a private folder. The library takes the name on the device from it.
bool GiveName(const fs::path& local, const fs::path& link) {
  std::error_code error;
  const fs::path source = fs::absolute(local, error);
  if constexpr (!kIsDosHost) fs::create_symlink(source, link, error);
  if constexpr (kIsDosHost) fs::create_hard_link(source, link, error);
  if (!error) return true;
  if (!fs::copy_file(source, link, error)) return false;
  fs::last_write_time(link, fs::last_write_time(source, error), error);
  return true;
}

std::string JoinRelative(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

}  // namespace

Putter::Putter(const Context& context, std::string command, const TransferOptions& options, std::string shownLocal)
    : context_(context),
      options_(options),
      shownLocal_(std::move(shownLocal)),
      exclusions_(options.excluded),
      transfer_(context, std::move(command), Direction::ToDevice, options) {}

std::string Putter::Shown(const fs::path& local) const { return shownLocal_.empty() ? LocalText(local) : shownLocal_; }

void Putter::Refuse(const fs::path& local, const std::string& problem) {
  transfer_.Fail({{}, Shown(local)}, Problem(problem));
}

// The name on the device; "" when there is none, which has been said.
std::string Putter::NameOf(const fs::path& local, const fs::path& ownName, const std::string& newName) {
  if (!newName.empty()) return newName;
  const VolumeName name = VolumeNameFor(LocalText(ownName));
  if (!name.problem.empty()) Refuse(local, name.problem);
  return name.problem.empty() ? name.bytes : std::string();
}

// True when nothing else is copied to this path.
bool Putter::Claim(const std::string& path, const fs::path& local) {
  const auto [earlier, isFree] = taken_.try_emplace(FoldDeviceName(path), LocalText(local));
  if (!isFree) {
    Refuse(local, "skipped: on the device it has the name of " + Escape(earlier->second) + ", " + DisplayPath(path));
  }
  return isFree;
}

// Finds out what is in a folder of the device, where that matters. False when it cannot be told, which has been said.
bool Putter::List(Target& target, const fs::path& local) {
  if (!target.isExisting || (!options_.Compares() && !options_.isDryRun)) return true;
  transfer_.Look(DisplayPath(target.path));
  const Listing listing = context_.session.List(target.path);
  if (listing.answer.status == MEDIA_ADAPTER_INVALID_PATH) {
    target.isExisting = false;
    return true;
  }
  Answer answer = listing.isFile ? Problem("a file on the device, not a folder") : listing.answer;
  if (!answer.IsOk()) {
    if (answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES) answer.detail = "nothing in it can be compared";
    transfer_.Fail({target.path, Shown(local)}, answer);
    return false;
  }
  for (const ListingEntry& entry : listing.entries) {
    if (!IsDotEntry(entry)) target.entries.try_emplace(FoldDeviceName(EntryName(entry)), entry);
  }
  target.isListed = true;
  return true;
}

void Putter::Item(const fs::path& local, const std::string& folderPath, const std::string& newName) {
  Target target = {.path = folderPath, .relative = {}};
  if (List(target, local)) ItemInto(local, target, newName);
}

void Putter::Contents(const fs::path& local, const std::string& folderPath) {
  Target target = {.path = folderPath, .relative = {}};
  if (!List(target, local)) return;
  if (!target.isExisting) steps_.push_back({true, local, folderPath});
  Entries(local, target);
}

void Putter::ItemInto(const fs::path& local, const Target& target, const std::string& newName) {
  if (!transfer_.MayGoOn()) return;
  std::error_code error;
  const fs::file_status status = fs::status(local, error);
  if (!fs::exists(status)) return Refuse(local, "no such local file");
  const fs::path normal = local.lexically_normal();
  const std::string ownName = LocalText((normal.has_filename() ? normal : normal.parent_path()).filename());
  if (exclusions_.Has(JoinRelative(target.relative, ownName), fs::is_directory(status))) return;
  if (fs::is_regular_file(status)) return File(local, target, newName);
  if (!fs::is_directory(status)) return Refuse(local, "neither a file nor a folder");
  if (!options_.isRecursive) return Refuse(local, "a folder; give -r to copy it");
  Folder(local, target, newName);
}

void Putter::File(const fs::path& local, const Target& target, const std::string& newName) {
  const std::string name = NameOf(local, local.filename(), newName);
  if (name.empty()) return;
  const std::string path = JoinDevicePath(target.path, name);
  if (const std::string problem = CheckNewName(name); !problem.empty()) return Refuse(local, problem);
  if (path.size() > MEDIA_ADAPTER_MAX_PATH) return Refuse(local, "the path on the device is too long");
  const std::optional<LocalState> state = LookAt(local);
  if (!state) return Refuse(local, "cannot read the local file");
  if (const std::string problem = CheckLocalFile(local, state->size); !problem.empty()) return Refuse(local, problem);
  if (!Claim(path, local)) return;
  const auto there = target.entries.find(FoldDeviceName(name));
  if (there != target.entries.end()) {
    if (IsFolder(there->second)) return Refuse(local, "a folder on the device has this name, " + DisplayPath(path));
    const bool isGood = !context_.writer.IsUnfinished(path) && !context_.writer.IsClearedInPart();
    const std::string reason = isGood ? transfer_.ReasonToSkip(Compare(*state, there->second)) : "";
    if (!reason.empty()) return transfer_.Skip({path, Shown(local), state->size}, reason);
  }
  transfer_.Expect(state->size);
  steps_.push_back({false, local, path});
}

// The folder under its own name; "." and ".." give what is in them.
void Putter::Folder(const fs::path& local, const Target& target, const std::string& newName) {
  const fs::path normal = local.lexically_normal();
  const fs::path ownName = (normal.has_filename() ? normal : normal.parent_path()).filename();
  const bool isNamed = !ownName.empty() && ownName != LocalPath(".") && ownName != LocalPath("..");
  if (newName.empty() && !isNamed) return Entries(local, target);
  const std::string name = NameOf(local, ownName, newName);
  if (name.empty()) return;
  Target inner = {.path = JoinDevicePath(target.path, name),
                  .relative = JoinRelative(target.relative, LocalText(ownName)),
                  .isExisting = target.isExisting};
  if (!Claim(inner.path, local)) return;
  if (target.isListed) inner.isExisting = target.entries.contains(FoldDeviceName(name));
  if (!List(inner, local)) return;
  if (!inner.isExisting || !inner.isListed) steps_.push_back({true, local, inner.path});
  Entries(local, inner);
}

void Putter::Entries(const fs::path& local, const Target& target) {
  std::error_code error;
  const fs::path real = fs::canonical(local, error);
  if (error) return Refuse(local, ErrorText(error));
  // Symbolic links are followed, but not round in circles.
  if (std::ranges::find(around_, real) != around_.end()) {
    return Refuse(local, "skipped: leads back to a folder around it");
  }
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(local, error), end; !error && entry != end; entry.increment(error)) {
    entries.push_back(entry->path());
  }
  if (error) Refuse(local, ErrorText(error));
  std::ranges::sort(entries);
  around_.push_back(real);
  for (const fs::path& entry : entries) ItemInto(entry, target, {});
  around_.pop_back();
  if (options_.deletes) DeleteOthers(target);
}

void Putter::DeleteOthers(const Target& target) {
  for (const auto& [folded, entry] : target.entries) {
    const std::string name = EntryName(entry);
    const std::string path = JoinDevicePath(target.path, name);
    if (taken_.contains(FoldDeviceName(path)) || !transfer_.MayGoOn()) continue;
    PlanDeletion(entry, path, JoinRelative(target.relative, LocalNameFor(name)));
  }
}

// The device keeps its folders; what is in them goes.
void Putter::PlanDeletion(const ListingEntry& entry, const std::string& path, const std::string& relative) {
  if (exclusions_.Has(relative, IsFolder(entry))) return;
  if (!IsFolder(entry)) return deletions_.push_back({path, {}, entry.size});
  ++keptFolders_;
  const bool isNew = entry.firstCluster != 0 && seenFolders_.insert(entry.firstCluster).second;
  Target folder = {.path = path, .relative = relative};
  if (!isNew) return transfer_.Fail({path, {}}, Problem("skipped: a folder that was seen already"));
  if (List(folder, {})) DeleteOthers(folder);
}

void Putter::RunDeletions() {
  if (!transfer_.MayDelete(deletions_.size())) return;
  for (const TransferItem& item : deletions_) {
    if (!transfer_.MayGoOn()) return;
    transfer_.Delete(item, [&] { return context_.writer.Remove(item.path); });
  }
  if (keptFolders_ > 0) {
    context_.output.Note(std::to_string(keptFolders_) +
                         (keptFolders_ == 1 ? " empty folder stays" : " empty folders stay") +
                         ": the device cannot delete folders");
  }
}

int Putter::Run(bool isSummaryAlways) {
  RunDeletions();
  std::set<std::string> missing;  // folders that could not be made
  for (const Step& step : steps_) {
    if (!transfer_.MayGoOn()) break;
    if (missing.contains(SplitDevicePath(step.path).folder) || !RunStep(step)) {
      if (step.isFolder) missing.insert(step.path);
    }
  }
  return transfer_.Finish(isSummaryAlways);
}

bool Putter::RunStep(const Step& step) {
  if (step.isFolder) {
    return transfer_.MakeFolder({step.path, Shown(step.local)}, [&] {
      const Answer answer = MakeOrTakeFolder(context_, step.path);
      return answer.status == MEDIA_ADAPTER_INVALID_PATH ? MakeFolderAndParents(context_, step.path) : answer;
    });
  }
  const std::optional<LocalState> before = LookAt(step.local);
  return transfer_.Copy(
      {step.path, Shown(step.local), before ? std::optional(before->size) : std::nullopt}, nullptr,
      [&] { return before ? Store(step.local, step.path, *before) : Problem("the local file is not there any more"); });
}

Answer Putter::Store(const fs::path& local, const std::string& path, const LocalState& before) {
  const auto [folder, name] = SplitDevicePath(path);
  const std::string source = SourceOf(local, name);
  if (source.empty()) return Problem("cannot make a temporary file of the name " + ShowName(name));
  Answer answer = context_.writer.Put(source, before.size, folder, name);
  if (!answer.IsOk()) return answer;
  const std::optional<LocalState> after = LookAt(local);
  if (!after || *after == before) return answer;
  Answer changed = Problem("the local file was changed while it was copied; copy it again");
  // A mixture that size and time cannot tell from the file itself would be taken for it the next time.
  if (after->size == before.size && after->stored == before.stored && context_.writer.Remove(path).IsOk()) {
    changed.detail = "the copy has been deleted";
  }
  return changed;
}

// A path that leads to the file and ends in the name; "" when there is none to be had.
std::string Putter::SourceOf(const fs::path& local, const std::string& name) {
  std::string own = LocalText(local);
  if (LocalText(local.filename()) == name && own.size() <= MEDIA_ADAPTER_MAX_PATH) return own;
  if (!links_) links_.emplace();
  if (links_->Path().empty() || links_->Path().size() + 1 + name.size() > MEDIA_ADAPTER_MAX_PATH) return {};
  const fs::path link = links_->Use(name);
  return GiveName(local, link) ? LocalText(link) : std::string();
}

}  // namespace media_adapter::cli

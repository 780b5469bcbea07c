// The "get" command. The device's names decide where local files come to lie, so each passes IsSafeLocalName, and no
// symbolic link inside the target is followed.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <set>

#include "cli/commands/fetch.h"
#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/interrupts.h"
#include "cli/console/progress_bar.h"
#include "cli/console/text.h"
#include "cli/console/wildcards.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"
#include "cli/local/temporary_folder.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

struct GetOptions {
  bool isRecursive = false;
  std::string target;
};

// The time that the device's clock showed when the item was changed, as the local time of this machine.
void CopyTime(const ListingEntry& entry, const fs::path& local) {
  std::tm time = {};
  time.tm_year = entry.year - 1900;
  time.tm_mon = entry.month - 1;
  time.tm_mday = entry.day;
  time.tm_hour = entry.hour;
  time.tm_min = entry.minute;
  time.tm_sec = entry.second;
  time.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&time);
  std::error_code error;  // a time that cannot be kept is no reason to lose the file
  if (entry.month == 0 || entry.day == 0 || seconds == -1) return;
  const auto sinceEpoch = std::chrono::sys_seconds(std::chrono::seconds(seconds));
  fs::last_write_time(local, std::chrono::file_clock::from_sys(sinceEpoch), error);
}

// Why a file cannot come to lie at `local`, or "". A link is not followed, and a local file is replaced only if it may
// be written.
std::string CheckLocalTarget(const fs::path& local) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(local, error);
  if (!fs::exists(status)) return {};
  if (fs::is_symlink(status)) return "skipped: the local name is a symbolic link";
  if (fs::is_directory(status)) return "skipped: a local folder has this name";
  if (!fs::is_regular_file(status)) return "skipped: the local name is no regular file";
  return (status.permissions() & fs::perms::owner_write) != fs::perms::none ? ""
                                                                            : "skipped: the local file is read-only";
}

}  // namespace

Answer FetchFile(const Context& context, const std::string& path, const std::string& localFolder,
                 const std::optional<ListingEntry>& entry) {
  const fs::path local = fs::path(localFolder) / SplitDevicePath(path).name;
  Answer answer;
  {
    const ProgressBar bar(DisplayPath(path), entry ? entry->size : 0, context.session.Progress());
    answer = context.session.ReadFile(path, localFolder);
  }
  if (!answer.IsOk()) return answer;
  if (IsInterrupted()) return Problem("interrupted; nothing was kept");
  std::error_code error;
  const uint64_t localSize = fs::file_size(local, error);
  if (error) return Problem("the local file is not there: " + error.message());
  if (entry && localSize != entry->size) {
    return Problem("the local file has " + std::to_string(localSize) + " bytes, the device lists " +
                   std::to_string(entry->size));
  }
  return answer;
}

namespace {

// Each file comes into a private folder first and is renamed to its place when it is whole, so that no part of a file
// ever stands there or replaces a good copy.
class Getter {
 public:
  // root: the local folder that everything goes into, and the private folder with it.
  Getter(const Context& context, bool isRecursive, fs::path root)
      : context_(context), isRecursive_(isRecursive), root_(std::move(root)), results_(context.output, "get") {}

  // newName: below the root, or "" for the name that the path spells.
  void Item(const std::string& path, const std::string& newName) {
    if (!results_.MayGoOn()) return;
    const Found found = FindItem(context_.session, path);
    const std::string name = newName.empty() ? LocalNameFor(SplitDevicePath(path).name) : newName;
    if (!found.answer.IsOk()) return results_.Add(path, ExplainMissing(context_.session, path, found.answer));
    if (found.isFolder && !isRecursive_) return results_.Add(path, Problem("a folder; give -r to copy it"));
    if (!name.empty() && !IsSafeLocalName(name)) return results_.Add(path, Problem("no name for a local file"));
    if (!found.isFolder) return File(path, root_ / name, found.entry);
    if (found.entry) seenFolders_.insert(found.entry->firstCluster);
    return name.empty() ? Contents(path, root_) : Folder(path, root_ / name);
  }

  std::vector<std::string> Expand(std::span<const std::string> patterns) {
    return results_.Expand(context_.session, patterns);
  }

  int Finish() const { return results_.Finish(); }

 private:
  void File(const std::string& path, const fs::path& local, const std::optional<ListingEntry>& entry) {
    const Answer answer = Fetch(path, local, entry);
    results_.Add(path, answer, LocalText(local), entry ? std::optional(entry->size) : std::nullopt);
    if (answer.IsOk()) {
      const std::string amount = entry ? ", " + SizeText(entry->size) : "";
      context_.output.Note(DisplayPath(path) + " -> " + Escape(LocalText(local)) + amount);
    }
  }

  Answer Fetch(const std::string& path, const fs::path& local, const std::optional<ListingEntry>& entry) {
    if (const std::string problem = CheckLocalTarget(local); !problem.empty()) return Problem(problem);
    if (!staging_) staging_.emplace(root_);
    if (staging_->Path().empty()) {
      return Problem("cannot write into " + Escape(LocalText(root_)) + ": " + staging_->Error());
    }
    const fs::path staged = staging_->Use(SplitDevicePath(path).name);
    Answer answer = FetchFile(context_, path, staging_->Path(), entry);
    if (!answer.IsOk()) return answer;
    if (entry) CopyTime(*entry, staged);
    std::error_code error;
    const fs::file_status replaced = fs::symlink_status(local, error);
    if (fs::is_regular_file(replaced)) fs::permissions(staged, replaced.permissions(), error);
    fs::rename(staged, local, error);
    return error ? Problem("cannot write " + Escape(LocalText(local)) + ": " + error.message()) : answer;
  }

  void Folder(const std::string& path, const fs::path& local) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(local, error);
    if (!fs::is_directory(status) && (fs::exists(status) || !fs::create_directory(local, error))) {
      return results_.Add(path, Problem(fs::exists(status) ? "skipped: no folder has the local name" : error.message()),
                          LocalText(local));
    }
    Contents(path, local);
  }

  void Contents(const std::string& path, const fs::path& local) {
    const Listing listing = context_.session.List(path);
    if (!listing.answer.IsOk()) return results_.Add(path, listing.answer, LocalText(local));
    std::set<std::string> names;
    for (const ListingEntry& entry : listing.entries) {
      if (!IsDotEntry(entry)) Entry(path, local, entry, names);
    }
  }

  void Entry(const std::string& folderPath, const fs::path& localFolder, const ListingEntry& entry,
             std::set<std::string>& names) {
    if (!results_.MayGoOn()) return;
    const std::string name = EntryName(entry);
    const std::string path = JoinDevicePath(folderPath, name);
    const std::string localName = LocalNameFor(name);
    if (!IsSafeLocalName(localName)) return results_.Add(path, Problem("skipped: no name for a local file"));
    if (!names.insert(name).second) return results_.Add(path, Problem("skipped: the name stands twice in its folder"));
    if (!IsFolder(entry)) return File(path, localFolder / localName, entry);
    // A sound volume reaches a folder once; one that leads back into itself would never end.
    const bool isNew = entry.firstCluster != 0 && seenFolders_.insert(entry.firstCluster).second;
    return isNew ? Folder(path, localFolder / localName)
                 : results_.Add(path, Problem("skipped: a folder that was copied already"));
  }

  const Context& context_;
  const bool isRecursive_;
  const fs::path root_;
  ItemResults results_;
  std::set<uint32_t> seenFolders_;  // first clusters
  std::optional<TemporaryFolder> staging_;
};

Answer CopyToOutput(const std::string& localPath) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(localPath.c_str(), "rb"), std::fclose);
  if (!file) return Problem("cannot read the temporary file");
  std::vector<char> buffer(1 << 16);
  size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), file.get())) > 0) {
    if (std::fwrite(buffer.data(), 1, count, stdout) < count) return Problem("cannot write to standard output");
  }
  return std::ferror(file.get()) != 0 ? Problem("cannot read the temporary file") : Answer{MEDIA_ADAPTER_OK, {}};
}

}  // namespace

// The library writes files only, so the file takes the way round by a temporary folder.
int GetToOutput(const Context& context, const std::string& command, const std::string& path) {
  const std::string operation = command + " " + DisplayPath(path);
  const Found found = FindItem(context.session, path);
  if (!found.answer.IsOk()) {
    return context.output.Failed(operation, ExplainMissing(context.session, path, found.answer));
  }
  if (found.isFolder) return context.output.Failed(operation, Problem("a folder cannot go to standard output"));
  const std::string name = SplitDevicePath(path).name;
  if (!IsSafeLocalName(LocalNameFor(name))) {
    return context.output.Failed(operation, Problem("no name for a local file"));
  }
  TemporaryFolder folder;
  if (folder.Path().empty()) {
    return context.output.Failed(operation, Problem("cannot make a temporary folder: " + folder.Error()));
  }
  const fs::path local = folder.Use(name);
  Answer answer = FetchFile(context, path, folder.Path(), found.entry);
  if (answer.IsOk()) answer = CopyToOutput(LocalText(local));
  return answer.IsOk() ? kSuccess : context.output.Failed(operation, answer);
}

namespace {

// Takes the target apart: a folder that is there, or, for one item, a new name in one. The problem, or "".
std::string FindTarget(const std::string& target, size_t itemCount, fs::path& root, std::string& newName) {
  std::error_code error;
  root = target;
  if (fs::is_directory(root, error)) return {};
  if (itemCount > 1) return Escape(target) + " is no local folder; the last argument names the folder to copy into";
  if (!root.has_filename()) return Escape(target) + " is no local folder";
  newName = LocalText(root.filename());
  root = root.has_parent_path() ? root.parent_path() : fs::path(".");
  return fs::is_directory(root, error) ? std::string() : "there is no local folder " + Escape(LocalText(root));
}

int RunGet(const Context& context, std::vector<std::string> paths, GetOptions options) {
  const auto refuse = [&](const std::string& problem) {
    return context.output.Failed("get", Problem(problem), kUsage);
  };
  if (options.target.empty() && paths.size() > 1) {
    options.target = Unquote(paths.back());
    paths.pop_back();
  }
  if (options.target.empty()) options.target = ".";
  fs::path root;
  std::string newName;
  if (options.target == "-") {
    if (paths.size() > 1 || options.isRecursive) return refuse("only one file can go to standard output");
    if (context.output.isJson) return refuse("a file and JSON cannot both go to standard output");
  } else if (const auto problem = FindTarget(options.target, paths.size(), root, newName); !problem.empty()) {
    return refuse(problem);
  }
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, "get", paths, patterns)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  if (const std::string folder = DeviceFolderName(context); !folder.empty()) {
    if (options.target == "-" || !newName.empty()) return refuse("several devices need a local folder to copy into");
    std::error_code error;
    root /= folder;
    fs::create_directory(root, error);
    if (error) return context.output.Failed("get, into " + Escape(LocalText(root)), Problem(error.message()));
  }
  Getter getter(context, options.isRecursive, root);
  const std::vector<std::string> devicePaths = getter.Expand(patterns);
  const bool isToOne = options.target == "-" || !newName.empty();
  if (isToOne && devicePaths.size() > 1) {
    return refuse(std::to_string(devicePaths.size()) + " items match, but " + Escape(options.target) + " is no folder");
  }
  if (options.target == "-") {
    const int code = devicePaths.empty() ? kFailure : GetToOutput(context, "get", devicePaths.front());
    return code == kSuccess ? getter.Finish() : code;
  }
  for (const std::string& path : devicePaths) getter.Item(path, newName);
  return getter.Finish();
}

}  // namespace

void DescribeGet(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<GetOptions>();
  CLI::Option* const paths = parser.add_option(
      "PATH",
      "What to copy; the last of several is the local folder to copy into (. when there is one only, - for standard "
      "output), or a new name for one item. Local files of the same name are replaced");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.add_flag("-r,--recursive", options->isRecursive, "Copy folders with all that is in them");
  parser
      .add_option("-o,--output", options->target, "The local folder, a new name, or -; every PATH is then one to copy")
      ->type_name("FOLDER");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] {
      return ForEachDevice(context, [&] { return RunGet(context, arguments, *options); });
    };
  });
}

}  // namespace media_adapter::cli

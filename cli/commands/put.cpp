// The "put" command.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/interrupts.h"
#include "cli/console/progress_bar.h"
#include "cli/console/text.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"
#include "cli/local/matching_files.h"
#include "cli/local/temporary_folder.h"

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

class Putter {
 public:
  Putter(const Context& context, bool isRecursive)
      : context_(context), isRecursive_(isRecursive), results_(context.output, "put") {}

  // newName: on the device, or "" for the name of `local`.
  void Item(const fs::path& local, const std::string& folderPath, const std::string& newName = {}) {
    if (!results_.MayGoOn()) return;
    std::error_code error;
    const fs::file_status status = fs::status(local, error);
    if (!fs::exists(status)) return Refuse(local, "no such local file");
    if (fs::is_regular_file(status)) return File(local, folderPath, newName);
    if (!fs::is_directory(status)) return Refuse(local, "neither a file nor a folder");
    if (!isRecursive_) return Refuse(local, "a folder; give -r to copy it");
    Folder(local, folderPath, newName);
  }

  int Finish() const { return results_.Finish(); }

 private:
  void Refuse(const fs::path& local, const std::string& problem) {
    results_.Add({}, Problem(problem), LocalText(local));
  }

  // The name on the device; "" when there is none, which has been said.
  std::string NameOf(const fs::path& local, const fs::path& ownName, const std::string& newName) {
    if (!newName.empty()) return newName;
    const VolumeName name = VolumeNameFor(LocalText(ownName));
    if (!name.problem.empty()) Refuse(local, name.problem);
    return name.problem.empty() ? name.bytes : std::string();
  }

  // True when nothing else was copied to this path before.
  bool Claim(const std::string& path, const fs::path& local) {
    const auto [earlier, isFree] = taken_.try_emplace(FoldDeviceName(path), LocalText(local));
    if (!isFree) {
      Refuse(local, "skipped: on the device it has the name of " + Escape(earlier->second) + ", " + DisplayPath(path));
    }
    return isFree;
  }

  void File(const fs::path& local, const std::string& folderPath, const std::string& newName) {
    std::error_code error;
    const uint64_t size = fs::file_size(local, error);
    const std::string name = NameOf(local, local.filename(), newName);
    if (name.empty()) return;
    const std::string path = JoinDevicePath(folderPath, name);
    if (const std::string problem = CheckNewName(name); !problem.empty()) return Refuse(local, problem);
    if (path.size() > MEDIA_ADAPTER_MAX_PATH) return Refuse(local, "the path on the device is too long");
    if (const std::string problem = CheckLocalFile(local, size); !problem.empty()) return Refuse(local, problem);
    if (!Claim(path, local)) return;
    const std::string source = SourceOf(local, name);
    if (source.empty()) return Refuse(local, "cannot make a temporary file of the name " + ShowName(name));
    Answer answer;
    {
      const ProgressBar bar(Escape(LocalText(local)), size, nullptr);
      answer = context_.writer.Put(source, size, folderPath, name);
    }
    results_.Add(path, answer, LocalText(local), size);
    if (answer.IsOk()) {
      context_.output.Note(Escape(LocalText(local)) + " -> " + DisplayPath(path) + ", " + SizeText(size));
    }
  }

  // A path that leads to the file and ends in the name; "" when there is none to be had.
  std::string SourceOf(const fs::path& local, const std::string& name) {
    std::string own = LocalText(local);
    if (LocalText(local.filename()) == name && own.size() <= MEDIA_ADAPTER_MAX_PATH) return own;
    if (!links_) links_.emplace();
    if (links_->Path().empty() || links_->Path().size() + 1 + name.size() > MEDIA_ADAPTER_MAX_PATH) return {};
    const fs::path link = links_->Use(name);
    return GiveName(local, link) ? LocalText(link) : std::string();
  }

  // The folder under its own name; "." and ".." give what is in them.
  void Folder(const fs::path& local, const std::string& folderPath, const std::string& newName) {
    std::error_code error;
    const fs::path real = fs::canonical(local, error);
    if (error) return Refuse(local, error.message());
    // Symbolic links are followed, but not round in circles.
    if (std::ranges::find(around_, real) != around_.end())
      return Refuse(local, "skipped: leads back to a folder around it");
    const fs::path normal = local.lexically_normal();
    const fs::path ownName = (normal.has_filename() ? normal : normal.parent_path()).filename();
    std::string path = folderPath;
    if (!newName.empty() || (!ownName.empty() && ownName != "." && ownName != "..")) {
      const std::string name = NameOf(local, ownName, newName);
      if (name.empty()) return;
      path = JoinDevicePath(folderPath, name);
      if (!Claim(path, local)) return;
      if (const Answer answer = MakeOrTakeFolder(context_, path); !answer.IsOk()) {
        return results_.Add(path, answer, LocalText(local));
      }
    }
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(local, error), end; !error && entry != end; entry.increment(error)) {
      entries.push_back(entry->path());
    }
    if (error) Refuse(local, error.message());
    std::ranges::sort(entries);
    around_.push_back(real);
    for (const fs::path& entry : entries) Item(entry, path);
    around_.pop_back();
  }

  const Context& context_;
  const bool isRecursive_;
  ItemResults results_;
  std::vector<fs::path> around_;
  std::map<std::string, std::string> taken_;  // folded device paths, and the local path that each came from
  std::optional<TemporaryFolder> links_;
};

struct PutTarget {
  Answer answer;
  std::string folder;
  std::string newName;  // "" to keep the local names
};

// The last argument: a folder that is there, or, for one item, a new name in one.
PutTarget FindTarget(const Context& context, const std::string& argument, const std::string& path, size_t itemCount) {
  Answer answer = CheckFolder(context.session, path);
  if (answer.IsOk()) return {answer, path, {}};
  const bool isMissing = answer.status == MEDIA_ADAPTER_INVALID_PATH;
  const bool isFile = !answer.status;
  const bool mayBeName = itemCount == 1 && !argument.ends_with('/') && !argument.ends_with('\\');
  if (!mayBeName || (!isMissing && !isFile)) return {answer, path, {}};
  const DevicePathParts parts = SplitDevicePath(path);
  return {isFile ? Answer{MEDIA_ADAPTER_OK, {}} : CheckFolder(context.session, parts.folder), parts.folder, parts.name};
}

// The files to copy, which stand in front of the last word. On the command line the user's own shell has expanded
// patterns already, where it does that.
std::vector<std::string> LocalFiles(const Context& context, std::span<const std::string> words) {
  std::vector<std::string> files;
  for (const std::string& word : words.first(words.size() - 1)) {
    const bool isExpanded = !context.isLine && !kIsDosHost;
    std::ranges::move(isExpanded ? std::vector{word} : MatchingFiles(word), std::back_inserter(files));
  }
  return files;
}

int RunPut(const Context& context, const std::vector<std::string>& words, bool isRecursive) {
  std::vector<std::string> locals = LocalFiles(context, words);
  if (words.size() < 2) {
    return context.output.Failed("put", Problem("the last argument names the device's folder; / is its root"), kUsage);
  }
  const std::string targetArgument = words.back();
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "put", {&targetArgument, 1}, paths)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  const PutTarget target = FindTarget(context, targetArgument, paths.front(), locals.size());
  if (!target.answer.IsOk()) {
    return context.output.Failed("put, into " + DisplayPath(target.folder),
                                 ExplainMissing(context.session, target.folder, target.answer));
  }
  Putter putter(context, isRecursive);
  for (const std::string& local : locals) putter.Item(local, target.folder, target.newName);
  return putter.Finish();
}

}  // namespace

void DescribePut(CLI::App& parser, Context& context, Action& action) {
  auto isRecursive = std::make_shared<bool>(false);
  CLI::Option* const paths = parser.add_option("FILE",
                                               "Local files to copy, and last the device's folder to copy into, or a "
                                               "new name for one. Files of the same name are replaced");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.add_flag("-r,--recursive", *isRecursive, "Copy folders with all that is in them");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] {
      return ForEachDevice(context, [&] { return RunPut(context, arguments, *isRecursive); });
    };
  });
}

}  // namespace media_adapter::cli

// The "get" command. The device's names decide where local files come to lie, so each passes IsSafeLocalName, and no
// symbolic link inside the target is followed.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>

#include "cli/commands.h"
#include "cli/file_commands.h"
#include "cli/local_name.h"
#include "cli/local_text.h"
#include "cli/progress_bar.h"
#include "cli/temporary_folder.h"
#include "cli/text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

struct GetOptions {
  bool isRecursive = false;
  std::string target;
};

// Copies one file into a folder that is there. size: what the listing says, none when there is no row of it.
Answer FetchFile(const Context& context, const std::string& path, const fs::path& localFolder,
                 std::optional<uint32_t> size) {
  const fs::path local = localFolder / SplitDevicePath(path).name;
  Answer answer;
  {
    const ProgressBar bar(DisplayPath(path), size.value_or(0), context.session.Progress());
    answer = context.session.ReadFile(path, LocalText(localFolder));
  }
  if (!answer.IsOk()) return answer;
  std::error_code error;
  const uint64_t localSize = fs::file_size(local, error);
  if (error) return Problem("the local file is not there: " + error.message());
  if (size && localSize != *size) {
    return Problem("the local file has " + std::to_string(localSize) + " bytes, the device lists " +
                   std::to_string(*size));
  }
  return answer;
}

class Getter {
 public:
  Getter(const Context& context, bool isRecursive)
      : context_(context), isRecursive_(isRecursive), results_(context.output, "get") {}

  void Item(const std::string& path, const fs::path& target) {
    if (!results_.MayGoOn()) return;
    const Found found = FindItem(context_.session, path);
    const std::string name = SplitDevicePath(path).name;
    if (!found.answer.IsOk()) return results_.Add(path, found.answer);
    if (found.isFolder && !isRecursive_) return results_.Add(path, Problem("a folder; give -r to copy it"));
    if (!name.empty() && !IsSafeLocalName(name)) return results_.Add(path, Problem("no name for a local file"));
    if (!found.isFolder) return File(path, target, found.entry ? std::optional(found.entry->size) : std::nullopt);
    if (found.entry) seenFolders_.insert(found.entry->firstCluster);
    return name.empty() ? Contents(path, target) : Folder(path, target / name);
  }

  int Finish() const { return results_.Finish(); }

 private:
  void File(const std::string& path, const fs::path& localFolder, std::optional<uint32_t> size) {
    const fs::path local = localFolder / SplitDevicePath(path).name;
    const Answer answer = FetchFile(context_, path, localFolder, size);
    results_.Add(path, answer, LocalText(local), size);
    if (answer.IsOk()) {
      const std::string amount = size ? ", " + SizeText(*size) : "";
      context_.output.Note(DisplayPath(path) + " -> " + Escape(LocalText(local)) + amount);
    }
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
    if (!IsSafeLocalName(name)) return results_.Add(path, Problem("skipped: no name for a local file"));
    if (!names.insert(name).second) return results_.Add(path, Problem("skipped: the name stands twice in its folder"));
    if (IsFolder(entry)) {
      // A sound volume reaches a folder once; one that leads back into itself would never end.
      const bool isNew = entry.firstCluster != 0 && seenFolders_.insert(entry.firstCluster).second;
      return isNew ? Folder(path, localFolder / name)
                   : results_.Add(path, Problem("skipped: a folder that was copied already"));
    }
    std::error_code error;
    if (fs::is_symlink(localFolder / name, error)) {
      return results_.Add(path, Problem("skipped: the local name is a symbolic link"), LocalText(localFolder / name));
    }
    File(path, localFolder, entry.size);
  }

  const Context& context_;
  const bool isRecursive_;
  ItemResults results_;
  std::set<uint32_t> seenFolders_;  // first clusters
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

// The library writes files only, so the file takes the way round by a temporary folder.
int GetToOutput(const Context& context, const std::string& path) {
  const std::string operation = "get " + DisplayPath(path);
  const Found found = FindItem(context.session, path);
  if (!found.answer.IsOk()) return context.output.Failed(operation, found.answer);
  if (found.isFolder) return context.output.Failed(operation, Problem("a folder cannot go to standard output"));
  const std::string name = SplitDevicePath(path).name;
  if (!IsSafeLocalName(name)) return context.output.Failed(operation, Problem("no name for a local file"));
  const TemporaryFolder folder(name);
  if (folder.Path().empty()) return context.output.Failed(operation, Problem("cannot make a temporary folder"));
  Answer answer =
      FetchFile(context, path, folder.Path(), found.entry ? std::optional(found.entry->size) : std::nullopt);
  if (answer.IsOk()) answer = CopyToOutput(folder.FilePath());
  return answer.IsOk() ? kSuccess : context.output.Failed(operation, answer);
}

int RunGet(const Context& context, std::vector<std::string> paths, GetOptions options) {
  const auto refuse = [&](const std::string& problem) {
    return context.output.Failed("get", Problem(problem), kUsage);
  };
  if (options.target.empty() && paths.size() > 1) {
    options.target = paths.back();
    paths.pop_back();
  }
  if (options.target.empty()) options.target = ".";
  if (options.target == "-") {
    if (paths.size() > 1 || options.isRecursive) return refuse("only one file can go to standard output");
    if (context.output.isJson) return refuse("a file and JSON cannot both go to standard output");
  } else if (std::error_code error; !fs::is_directory(options.target, error)) {
    return refuse(Escape(options.target) + " is no local folder; the last argument names the folder to copy into");
  }
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  if (options.target == "-") return GetToOutput(context, context.session.Resolve(paths.front()));
  Getter getter(context, options.isRecursive);
  for (const std::string& path : paths) getter.Item(context.session.Resolve(path), options.target);
  return getter.Finish();
}

}  // namespace

void DescribeGet(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<GetOptions>();
  CLI::Option* const paths = parser.add_option(
      "PATH",
      "What to copy; the last of several is the local folder to copy into (. when there is one only, - for "
      "standard output). Local files of the same name are overwritten");
  paths->expected(1, -1)->required()->allow_extra_args();
  parser.add_flag("-r,--recursive", options->isRecursive, "Copy folders with all that is in them");
  parser.add_option("-o,--output", options->target, "The local folder, or -; every PATH is then one to copy")
      ->type_name("FOLDER");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunGet(context, arguments, *options); };
  });
}

}  // namespace media_adapter::cli

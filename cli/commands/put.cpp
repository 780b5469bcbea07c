// The "put" command.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "cli/commands/items.h"
#include "cli/commands/putter.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/interrupts.h"
#include "cli/console/terminal.h"
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

// What comes on standard input as a file, since the library writes files only. The problem, or "".
std::string Spool(const fs::path& path) {
  PrepareInputFile();
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  std::vector<char> buffer(1 << 16);
  uint64_t size = 0;
  while (const size_t count = ReadInput(buffer)) {
    size += count;
    if (size > kLargestFile) return "more than 4 GiB - 1, the most that a file on a FAT volume can have";
    if (!file.write(buffer.data(), static_cast<std::streamsize>(count))) break;
  }
  const bool isBroken = std::ferror(stdin) != 0;
  std::clearerr(stdin);  // the end that was typed is that of the file, not of the shell
  if (IsInterrupted()) return "interrupted; nothing was sent";
  if (isBroken) return "cannot read standard input";
  return file.flush() ? std::string() : "cannot write the temporary file";
}

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

// The files to copy. On the command line the user's own shell has expanded patterns already, where it does that.
std::vector<std::string> LocalFiles(const Context& context, std::span<const std::string> words) {
  std::vector<std::string> files;
  for (const std::string& word : words) {
    const bool isExpanded = !context.isLine && !kIsDosHost;
    std::ranges::move(isExpanded ? std::vector{word} : MatchingFiles(word), std::back_inserter(files));
  }
  return files;
}

// The command's arguments. `spool` holds standard input when that is what is copied.
struct PutArguments {
  std::vector<std::string> locals;
  std::string target;  // as it was typed
  std::string path;    // of the target
  std::optional<TemporaryFolder> spool;
};

// Reads standard input into a file of the name that it gets on the device. An exit code.
int TakeStandardInput(const Context& context, PutArguments& arguments) {
  const auto refuse = [&](const std::string& problem, int code) {
    return context.output.Failed("put -", Problem(problem), code);
  };
  const std::string name = SplitDevicePath(arguments.path).name;
  if (arguments.locals.size() > 1) return refuse("standard input is copied alone", kUsage);
  if (!context.output.place.empty()) return refuse("standard input holds the script", kUsage);
  if (name.empty() || arguments.target.ends_with('/') || arguments.target.ends_with('\\')) {
    return refuse("the last argument names the new file, as /music/new.mp3", kUsage);
  }
  if (const std::string problem = CheckNewName(name); !problem.empty()) return refuse(problem, kFailure);
  arguments.spool.emplace();
  if (arguments.spool->Path().empty()) {
    return refuse("cannot make a temporary folder: " + arguments.spool->Error(), kFailure);
  }
  const fs::path file = arguments.spool->Use(name);
  arguments.locals = {LocalText(file)};
  const std::string problem = Spool(file);
  return problem.empty() ? kSuccess : refuse(problem, kFailure);
}

int RunPut(const Context& context, const PutArguments& arguments, const TransferOptions& options) {
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  PutTarget target = FindTarget(context, arguments.target, arguments.path, arguments.locals.size());
  if (target.answer.IsOk() && arguments.spool && target.newName.empty()) {
    target.answer = Problem("a folder on the device; the last argument names the new file");
  }
  if (!target.answer.IsOk()) {
    return context.output.Failed("put, into " + DisplayPath(target.folder),
                                 ExplainMissing(context.session, target.folder, target.answer));
  }
  Putter putter(context, "put", options, arguments.spool ? "-" : "");
  for (const std::string& local : arguments.locals) putter.Item(LocalPath(local), target.folder, target.newName);
  return putter.Run(false);
}

int PrepareAndRunPut(const Context& context, std::vector<std::string> words, const TransferOptions& options) {
  if (words.size() < 2) {
    return context.output.Failed("put", Problem("the last argument names the device's folder; / is its root"), kUsage);
  }
  PutArguments arguments;
  arguments.target = words.back();
  words.pop_back();
  arguments.locals = LocalFiles(context, words);
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "put", {&arguments.target, 1}, paths)) return kUsage;
  arguments.path = paths.front();
  if (std::ranges::find(arguments.locals, "-") != arguments.locals.end()) {
    if (const int code = TakeStandardInput(context, arguments); code != kSuccess) return code;
  }
  return ForEachDevice(context, [&] { return RunPut(context, arguments, options); });
}

}  // namespace

void DescribePut(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<TransferOptions>();
  CLI::Option* const paths =
      parser.add_option("FILE",
                        "Local files to copy, - for standard input, and last the device's folder to "
                        "copy into, or a new name for one. Files of the same name are replaced");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.add_flag("-r,--recursive", options->isRecursive, "Copy folders with all that is in them");
  parser.add_flag("-s,--skip-same", options->skipsSame, "Pass over files of the same size and time");
  AddTransferOptions(parser, options);
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] {
      return PrepareAndRunPut(context, arguments, *options);
    };
  });
}

}  // namespace media_adapter::cli

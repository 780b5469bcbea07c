// The "get" command.
#include <filesystem>
#include <memory>

#include "cli/commands/fetch.h"
#include "cli/commands/getter.h"
#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/text.h"
#include "cli/console/wildcards.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

struct GetOptions : TransferOptions {
  std::string target;
};

// Takes the target apart: a folder that is there, or, for one item, a new name in one. The problem, or "".
std::string FindTarget(const std::string& target, size_t itemCount, fs::path& root, std::string& newName) {
  std::error_code error;
  root = LocalPath(target);
  if (fs::is_directory(root, error)) return {};
  if (itemCount > 1) return Escape(target) + " is no local folder; the last argument names the folder to copy into";
  if (!root.has_filename()) return Escape(target) + " is no local folder";
  newName = LocalText(root.filename());
  root = root.has_parent_path() ? root.parent_path() : LocalPath(".");
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
    if (options.Compares() || options.isDryRun) return refuse("nothing can be compared with standard output");
    if (context.output.isJson) return refuse("a file and JSON cannot both go to standard output");
    options.isVerbose = false;  // its lines would go there too
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
    root /= LocalPath(folder);
    if (!options.isDryRun) fs::create_directory(root, error);
    if (error) return context.output.Failed("get, into " + Escape(LocalText(root)), Problem(ErrorText(error)));
  }
  Getter getter(context, "get", options, root);
  const std::vector<std::string> devicePaths = getter.Expand(patterns);
  const bool isToOne = options.target == "-" || !newName.empty();
  if (isToOne && devicePaths.size() > 1) {
    return refuse(std::to_string(devicePaths.size()) + " items match, but " + Escape(options.target) + " is no folder");
  }
  if (options.target == "-") {
    const int code = devicePaths.empty() ? kFailure : GetToOutput(context, "get", devicePaths.front());
    return code == kSuccess ? getter.Run(false) : code;
  }
  for (const std::string& path : devicePaths) getter.Item(path, newName);
  return getter.Run(false);
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
  parser.add_flag("-s,--skip-same", options->skipsSame, "Pass over files of the same size and time");
  AddTransferOptions(parser, options);
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] {
      return ForEachDevice(context, [&] { return RunGet(context, arguments, *options); });
    };
  });
}

}  // namespace media_adapter::cli

// The "sync" command: makes one folder like another, on the device or from it.
#include <filesystem>
#include <memory>

#include "cli/commands/getter.h"
#include "cli/commands/items.h"
#include "cli/commands/putter.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/text.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

struct SyncOptions : TransferOptions {
  std::string from, to;
  bool isFromDevice = false;
};

int SyncToDevice(const Context& context, const SyncOptions& options, const std::string& path) {
  Putter putter(context, "sync", options);
  putter.Contents(LocalPath(options.from), path);
  return putter.Run(true);
}

int SyncFromDevice(const Context& context, const SyncOptions& options, const std::string& path) {
  const std::string operation = "sync " + DisplayPath(path);
  const Answer answer = CheckFolder(context.session, path);
  if (!answer.IsOk()) return context.output.Failed(operation, ExplainMissing(context.session, path, answer));
  fs::path root = LocalPath(options.to).lexically_normal();
  if (!root.has_filename() && root.has_relative_path()) root = root.parent_path();
  if (const std::string folder = DeviceFolderName(context); !folder.empty()) root /= LocalPath(folder);
  std::error_code error;
  if (fs::exists(root, error) && !fs::is_directory(root, error)) {
    return context.output.Failed(operation, Problem(Escape(LocalText(root)) + " is no local folder"), kUsage);
  }
  Getter getter(context, "sync", options, root);
  getter.Contents(path);
  return getter.Run(true);
}

int RunSync(const Context& context, const SyncOptions& options) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "sync", {options.isFromDevice ? &options.from : &options.to, 1}, paths)) return kUsage;
  std::error_code error;
  if (!options.isFromDevice && !fs::is_directory(LocalPath(options.from), error)) {
    const std::string hint = "is no local folder; from the device it is sync --from-device DEVICE-FOLDER LOCAL";
    return context.output.Failed("sync", Problem(Escape(options.from) + " " + hint), kUsage);
  }
  return ForEachDevice(context, [&] {
    const VolumeTurn turn(context.writer);
    if (turn.Code() != kSuccess) return turn.Code();
    return options.isFromDevice ? SyncFromDevice(context, options, paths.front())
                                : SyncToDevice(context, options, paths.front());
  });
}

}  // namespace

void DescribeSync(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<SyncOptions>();
  options->isRecursive = options->skipsSame = true;
  parser.add_option("FROM", options->from, "The local folder, or with --from-device the device's")->required();
  parser.add_option("TO", options->to, "The device's folder, or with --from-device the local one; made as needed")
      ->required();
  parser.add_flag("--from-device", options->isFromDevice, "Copy the other way: FROM is on the device, TO is local");
  parser.add_flag("--delete", options->deletes,
                  "Delete files in TO that FROM does not have (a device keeps its folders)");
  AddTransferOptions(parser, options);
  parser.callback([=, &context, &action] { action = [=, &context] { return RunSync(context, *options); }; });
}

}  // namespace media_adapter::cli

// The "cp" and "mv" commands.
#include <memory>

#include "cli/commands/copier.h"
#include "cli/console/text.h"
#include "cli/console/wildcards.h"

namespace media_adapter::cli {
namespace {

struct Target {
  Answer answer;
  std::string folder;
  std::string newName;  // "" to keep the names
};

// The last argument: a folder that is there, or, for one item, a new name in one.
Target FindTarget(Session& session, const std::string& argument, const std::string& path, size_t itemCount) {
  Answer answer = CheckFolder(session, path);
  const bool isMissing = answer.status == MEDIA_ADAPTER_INVALID_PATH;
  const bool isFile = !answer.status;
  const bool mayBeName = itemCount == 1 && !argument.ends_with('/') && !argument.ends_with('\\');
  if (answer.IsOk() || !mayBeName || (!isMissing && !isFile)) return {answer, path, {}};
  const DevicePathParts parts = SplitDevicePath(path);
  return {CheckFolder(session, parts.folder), parts.folder, parts.name};
}

int RunCopy(const Context& context, std::span<const std::string> arguments, const CopyOptions& options) {
  const std::string command = options.isMove ? "mv" : "cp";
  if (arguments.size() < 2) {
    return context.output.Failed(command, Problem("the last argument names the folder, or the new name"), kUsage);
  }
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, command, arguments, patterns)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, command);
  const std::vector<std::string> targets = results.Expand(context.session, {&patterns.back(), 1});
  if (targets.size() > 1) {
    return context.output.Failed(command, Problem("more than one match for " + DisplayPath(Unquote(patterns.back()))),
                                 kUsage);
  }
  patterns.pop_back();
  const std::vector<std::string> sources = results.Expand(context.session, patterns);
  if (targets.empty() || !results.MayGoOn()) return results.Finish();
  const Target target = FindTarget(context.session, arguments.back(), targets.front(), sources.size());
  if (!target.answer.IsOk()) {
    return context.output.Failed(command + ", into " + DisplayPath(target.folder),
                                 ExplainMissing(context.session, target.folder, target.answer));
  }
  Copier copier(context, options, results);
  for (const std::string& source : sources) copier.Item(source, target.folder, target.newName);
  return results.Finish();
}

void Describe(CLI::App& parser, Context& context, Action& action, bool isMove) {
  auto options = std::make_shared<CopyOptions>();
  options->isMove = isMove;
  CLI::Option* const paths = parser.add_option(
      "PATH",
      "Files, and last the folder that they go into, or a new name for one. Files of the same name are replaced");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.add_flag("-r,-R,--recursive", options->isRecursive,
                  isMove ? "Folders, too; a device keeps the old ones, empty (status 241)"
                         : "Folders with all that is in them, too");
  parser.add_flag("-n,--no-clobber", options->keepsExisting, "Replace nothing");
  parser.add_flag("-v,--verbose", options->isVerbose, "Print what is done");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunCopy(context, arguments, *options); };
  });
}

}  // namespace

void DescribeCopy(CLI::App& parser, Context& context, Action& action) { Describe(parser, context, action, false); }

void DescribeMove(CLI::App& parser, Context& context, Action& action) { Describe(parser, context, action, true); }

}  // namespace media_adapter::cli

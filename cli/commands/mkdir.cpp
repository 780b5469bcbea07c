// The "mkdir" command.
#include <memory>

#include "cli/commands/items.h"
#include "cli/commands/table.h"

namespace media_adapter::cli {
namespace {

int RunMakeFolders(const Context& context, std::span<const std::string> arguments, bool withParents) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "mkdir", arguments, paths)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, "mkdir");
  for (const std::string& path : paths) {
    if (!results.MayGoOn()) break;
    results.Add(path, withParents ? MakeFolderAndParents(context, path) : MakeFolder(context, path));
  }
  return results.Finish();
}

}  // namespace

void DescribeMakeFolder(CLI::App& parser, Context& context, Action& action) {
  auto withParents = std::make_shared<bool>(false);
  CLI::Option* const paths = parser.add_option("PATH", "Folders to create");
  paths->expected(1, -1)->required()->allow_extra_args();
  parser.add_flag("-p,--parents", *withParents, "Create missing parents, and take a folder that is there for success");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] {
      return RunMakeFolders(context, arguments, *withParents);
    };
  });
}

}  // namespace media_adapter::cli

// The "rm" command.
#include "cli/commands/items.h"
#include "cli/commands/table.h"

namespace media_adapter::cli {
namespace {

int RunRemove(const Context& context, std::span<const std::string> arguments) {
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, "rm", arguments, patterns)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, "rm");
  for (const std::string& path : results.Expand(context.session, patterns)) {
    if (!results.MayGoOn()) break;
    results.Add(path, ExplainMissing(context.session, path, context.writer.Remove(path)));
  }
  return results.Finish();
}

}  // namespace

void DescribeRemove(CLI::App& parser, Context& context, Action& action) {
  CLI::Option* const paths = parser.add_option("PATH", "Files to delete");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunRemove(context, arguments); };
  });
}

}  // namespace media_adapter::cli

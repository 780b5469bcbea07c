// The "cat" command.
#include "cli/commands/fetch.h"
#include "cli/commands/items.h"

namespace media_adapter::cli {
namespace {

int RunPrint(const Context& context, std::span<const std::string> arguments) {
  if (context.output.isJson) {
    return context.output.Failed("cat", Problem("a file and JSON cannot both go to standard output"), kUsage);
  }
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, "cat", arguments, patterns)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, "cat");
  int code = kSuccess;
  for (const std::string& path : results.Expand(context.session, patterns)) {
    if (!results.MayGoOn()) break;
    if (GetToOutput(context, "cat", path) != kSuccess) code = kFailure;
  }
  return code == kSuccess ? results.Finish() : code;
}

}  // namespace

void DescribePrintFiles(CLI::App& parser, Context& context, Action& action) {
  CLI::Option* const paths = parser.add_option("PATH", "Files to print");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunPrint(context, arguments); };
  });
}

}  // namespace media_adapter::cli

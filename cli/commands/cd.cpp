// The "cd" and "pwd" commands.
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/items.h"
#include "cli/commands/table.h"

namespace media_adapter::cli {
namespace {

int RunChangeFolder(const Context& context, const std::string& argument) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "cd", {&argument, 1}, paths)) return kUsage;
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const std::string& path = paths.front();
  if (const Answer answer = CheckFolder(context.session, path); !answer.IsOk()) {
    return context.output.Failed("cd " + DisplayPath(path), ExplainMissing(context.session, path, answer));
  }
  context.session.folder = path;
  return kSuccess;
}

}  // namespace

void DescribeChangeFolder(CLI::App& parser, Context& context, Action& action) {
  auto path = std::make_shared<std::string>("/");
  parser.add_option("PATH", *path, "The root when not given");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunChangeFolder(context, *path); }; });
}

void DescribePrintFolder(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] {
    action = [&context] {
      const std::string path = DisplayPath(context.session.folder);
      if (context.output.isJson) {
        context.output.Json(path);
      } else {
        context.output.Line(path);
      }
      return kSuccess;
    };
  });
}

}  // namespace media_adapter::cli

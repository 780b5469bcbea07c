// The "lcd", "lpwd" and "lls" commands: this machine's side of a session.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/table.h"
#include "cli/console/text.h"
#include "cli/local/environment.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

int RunLocalChange(const Context& context, const std::string& typed) {
  fs::path path = typed.empty() ? Variable(kIsDosHost ? "USERPROFILE" : "HOME") : LocalPath(typed);
  if (path.empty()) path = LocalPath(".");
  std::error_code error;
  fs::current_path(path, error);
  return error ? context.output.Failed("lcd " + Escape(LocalText(path)), Problem(ErrorText(error))) : kSuccess;
}

int RunLocalPath(const Context& context) {
  std::error_code error;
  const fs::path path = fs::current_path(error);
  if (error) return context.output.Failed("lpwd", Problem(ErrorText(error)));
  if (context.output.isJson) {
    context.output.Json(Escape(LocalText(path)));
  } else {
    context.output.Line(Escape(LocalText(path)));
  }
  return kSuccess;
}

// As a word of the system's shell, for which nothing in it has a meaning.
std::string QuoteForSystem(const std::string& word) {
  const char quote = kIsDosHost ? '"' : '\'';
  std::string quoted(1, quote);
  for (const char c : word) quoted += c == '\'' && !kIsDosHost ? std::string("'\\''") : std::string(1, c);
  return quoted + quote;
}

int RunLocalList(const Context& context, std::span<const std::string> arguments) {
  std::string line = kIsDosHost ? "dir" : "ls";
  for (const std::string& argument : arguments) line += " " + QuoteForSystem(argument);
  std::fflush(stdout);
  return std::system(line.c_str()) == 0 ? kSuccess : context.output.Failed("lls", Problem("failed"));
}

}  // namespace

void DescribeLocalChange(CLI::App& parser, Context& context, Action& action) {
  auto path = std::make_shared<std::string>();
  parser.add_option("FOLDER", *path, "Your home folder when not given");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunLocalChange(context, *path); }; });
}

void DescribeLocalPath(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] { action = [&context] { return RunLocalPath(context); }; });
}

void DescribeLocalList(CLI::App& parser, Context& context, Action& action) {
  parser.allow_extras()->fallthrough(false);
  parser.footer("What follows is given to the system's own command for that, its options included.");
  parser.callback(
      [&] { action = [&context, arguments = parser.remaining()] { return RunLocalList(context, arguments); }; });
}

}  // namespace media_adapter::cli

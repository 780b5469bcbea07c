#include "cli/commands/shell.h"

#include <algorithm>
#include <iostream>

#include "cli/commands/completion.h"
#include "cli/console/interrupts.h"
#include "cli/console/line_editor.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/console/words.h"
#include "cli/device/device_choice.h"

namespace media_adapter::cli {
namespace {

constexpr const char* kNotice =
    "\nmedia-adapter: back to the prompt when the running request ends; Ctrl-C again leaves\n";

std::string Prompt(const Context& context) {
  const DeviceEntry* const device = context.session.Device();
  if (device == nullptr) return "media-adapter> ";
  return DeviceName(*device) + ":" + DisplayPath(context.session.folder) + "> ";
}

int RunHelp(Context& context, std::span<const std::string> names) {
  std::string line;
  for (const std::string& name : names) line += name + " ";
  const auto isNamed = [&](const Command& command) { return command.name == names.front(); };
  if (!names.empty() && std::ranges::none_of(CommandTable(), isNamed)) {
    return context.output.Failed("help " + Escape(names.front()), Problem("no such command"), kUsage);
  }
  return RunLine(line + "--help", context);
}

}  // namespace

int RunScript(Context& context) {
  int code = kSuccess;
  std::string line;
  for (int number = 1; !context.isLeaving && std::getline(std::cin, line); ++number) {
    context.output.place = "line " + std::to_string(number) + ": ";
    const int lineCode = RunLine(line, context);
    if (code == kSuccess) code = lineCode;
    if ((lineCode != kSuccess && !context.isKeptGoing) || IsInterrupted()) break;
  }
  return code;
}

int RunShell(Context& context) {
  if (context.isInShell) return context.output.Failed("shell", Problem("this is the shell already"), kUsage);
  if (!IsInputTerminal()) return RunScript(context);
  context.isInShell = true;
  context.session.Prepare();
  context.output.Note("\"help\" lists the commands, \"exit\" or Ctrl-D leaves");
  LineEditor editor([&](std::string_view line) { return Complete(line, context); });
  while (!context.isLeaving) {
    std::optional<std::string> line = editor.ReadLine(Prompt(context));
    if (!line) {
      context.output.Note("");
      break;
    }
    // The end of the line ends a quotation, which completion leaves open behind a folder.
    if (const char quote = FindLastWord(*line).quote; quote != 0) *line += quote;
    const InterruptWatch watch(kNotice);
    RunLine(*line, context);
    ForgetInterrupt();
  }
  return kSuccess;
}

void DescribeShell(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] { action = [&context] { return RunShell(context); }; });
}

void DescribeHelp(CLI::App& parser, Context& context, Action& action) {
  CLI::Option* const names = parser.add_option("COMMAND", "The command to describe");
  names->expected(0, -1)->allow_extra_args();
  parser.callback([=, &context, &action] {
    action = [&context, arguments = names->reduced_results()] { return RunHelp(context, arguments); };
  });
}

void DescribeExit(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] {
    action = [&context] {
      context.isLeaving = true;
      return kSuccess;
    };
  });
}

}  // namespace media_adapter::cli

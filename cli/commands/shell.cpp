#include "cli/commands/shell.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "cli/commands/completion.h"
#include "cli/console/interrupts.h"
#include "cli/console/line_editor.h"
#include "cli/console/statements.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/console/words.h"
#include "cli/device/device_choice.h"
#include "cli/device/element_value.h"
#include "cli/local/local_name.h"

namespace media_adapter::cli {
namespace {

constexpr const char* kNotice =
    "\nmedia-adapter: back to the prompt when the running request ends; Ctrl-C again leaves\n";

std::string Prompt(const Context& context) {
  const DeviceEntry* const device = context.session.Device();
  if (device == nullptr) return "media-adapter> ";
  return DeviceName(*device) + ":" + DisplayPath(context.session.folder) + "> ";
}

// What a person means to set may be a secret in the wrong place, unless it is surely none.
bool IsPlainSetting(const std::string& word) {
  const size_t equals = word.find('=');
  if (equals == std::string::npos || word.find("=@") == equals) return true;
  const ElementRow* const row = FindElementByName(word.substr(0, equals));
  return row != nullptr && row->form != ElementForm::Secret;
}

// False for a line that may hold a secret: what is no command may be a password that was typed too early. As elsewhere,
// a blank in front keeps any line out.
bool MayBeKept(std::string_view line) {
  if (line.starts_with(' ') || line.starts_with('\t')) return false;
  return std::ranges::all_of(SplitStatements(line), [](std::string_view statement) {
    statement = TrimStatement(statement);
    if (statement.empty() || statement.starts_with('!')) return true;
    const auto words = SplitWords(statement);
    if (!words || FindCommand(words->front()) == nullptr) return false;
    return words->front() != "config" || std::ranges::all_of(*words, IsPlainSetting);
  });
}

// "!" alone is the system's shell itself.
void RunSystemCommand(const std::string& command) {
  const char* const shell = std::getenv(kIsDosHost ? "COMSPEC" : "SHELL");
  const char* const usual = kIsDosHost ? "cmd" : "sh";
  std::fflush(stdout);
  [[maybe_unused]] const int code = std::system(!command.empty() ? command.c_str() : shell != nullptr ? shell : usual);
}

void RunStatements(const std::string& line, Context& context) {
  const InterruptWatch watch(kNotice);
  for (const std::string_view statement : SplitStatements(line)) {
    if (context.isLeaving || IsInterrupted()) break;
    const std::string_view text = TrimStatement(statement);
    if (text.starts_with('!')) {
      RunSystemCommand(std::string(text.substr(1)));
    } else {
      RunLine(text, context);
    }
  }
  ForgetInterrupt();
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
  LineEditor editor([&](std::string_view line) { return Complete(line, context); }, MayBeKept);
  while (!context.isLeaving) {
    std::optional<std::string> line = editor.ReadLine(Prompt(context));
    if (!line) {
      context.output.Note("");
      break;
    }
    // The end of the line ends a quotation, which completion leaves open behind a folder.
    const std::string_view last = TrimStatement(SplitStatements(*line).back());
    if (const char quote = FindLastWord(last).quote; quote != 0 && !last.starts_with('!')) *line += quote;
    RunStatements(*line, context);
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

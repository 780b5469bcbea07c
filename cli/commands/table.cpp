#include "cli/commands/table.h"

#include <algorithm>
#include <optional>

#include "cli/console/text.h"
#include "cli/console/wildcards.h"
#include "cli/console/words.h"

namespace media_adapter::cli {
namespace {

constexpr Command kCommands[] = {
    {"search", "List the devices on the network", DescribeSearch, Completes::Nothing},
    {"ls", "List a folder of the device", DescribeList, Completes::DevicePaths},
    {"tree", "Show a folder of the device and all below it", DescribeTree, Completes::DevicePaths},
    {"find", "Look for files and folders on the device", DescribeFind, Completes::DevicePaths},
    {"du", "Add up the sizes of the files below folders", DescribeUsage, Completes::DevicePaths},
    {"cat", "Print files of the device", DescribePrintFiles, Completes::DevicePaths},
    {"get", "Copy files and folders from the device", DescribeGet, Completes::DeviceThenLocalPaths},
    {"put", "Copy files and folders to the device", DescribePut, Completes::LocalThenDevicePaths},
    {"sync", "Make a folder of the device like a local one, or the other way", DescribeSync,
     Completes::LocalThenDevicePaths},
    {"mkdir", "Create folders on the device", DescribeMakeFolder, Completes::DevicePaths},
    {"cp", "Copy files and folders on the device", DescribeCopy, Completes::DevicePaths},
    {"mv", "Move or rename files and folders on the device", DescribeMove, Completes::DevicePaths},
    {"rm", "Delete files on the device", DescribeRemove, Completes::DevicePaths},
    {"format", "Delete everything on the device's volume", DescribeFormat, Completes::Nothing},
    {"config", "Read, change, save and load the device's settings", DescribeConfig, Completes::Settings},
    {"ip", "Give the device another IP address", DescribeIp, Completes::Nothing},
    {"test", "Start the device's test and show its counters", DescribeTest, Completes::Nothing},
    {"connect", "Open access to the device's storage", DescribeConnect, Completes::Nothing},
    {"disconnect", "Close access to the device's storage", DescribeDisconnect, Completes::Nothing},
    {"device", "Show or choose the device that commands work on", DescribeDeviceCommand, Completes::Devices},
    {"cd", "Change the current folder of the device", DescribeChangeFolder, Completes::DevicePaths},
    {"pwd", "Print the current folder of the device", DescribePrintFolder, Completes::Nothing},
    {"lcd", "Change the current folder of this machine", DescribeLocalChange, Completes::LocalPaths},
    {"lpwd", "Print the current folder of this machine", DescribeLocalPath, Completes::Nothing},
    {"lls", "List a folder of this machine", DescribeLocalList, Completes::LocalPaths},
    {"shell", "Read commands interactively", DescribeShell, Completes::Nothing, true},
    {"agent", "Keep the devices that were found, for later commands", DescribeAgent, Completes::Nothing, true},
    {"help", "Describe the commands, or one of them", DescribeHelp, Completes::Commands, true},
    {"exit", "Leave the script or the shell", DescribeExit, Completes::Nothing, true},
};

// The parser takes "[a,b]" for a list and "++" for the end of a command, but both may be file names. No argument can
// hold a zero byte, so one at the end guards such words on their way through.
void Guard(std::string& word) {
  if (word == "++" || (word.starts_with('[') && word.ends_with(']'))) word += '\0';
}

std::string WithoutGuard(std::string_view word) { return std::string(word.substr(0, word.find_last_not_of('\0') + 1)); }

// Takes the guards off again, whatever option a word ends up with, and where it cannot be a pattern, what tells that
// some of it was quoted.
void Unguard(CLI::App& parser) {
  for (CLI::Option* const option : parser.get_options()) {
    option->transform(option->get_type_name() == kPattern ? WithoutGuard : Unquote);
  }
  for (CLI::App* const command : parser.get_subcommands([](CLI::App*) { return true; })) Unguard(*command);
}

// The options of find have one dash by habit, which the parser would take for a row of options of one letter.
void LengthenFindOptions(const CLI::App& parser, std::vector<std::string>& arguments) {
  const auto isFind = [](const CLI::App* command) { return command->get_name() == "find"; };
  const std::vector<const CLI::App*> find = parser.get_subcommands(isFind);
  const auto command = std::ranges::find(arguments, "find");
  if (find.empty() || command == arguments.end()) return;
  std::for_each(command, arguments.end(), [&](std::string& word) {
    const bool isOneDash = word.size() > 2 && word.starts_with('-');
    if (isOneDash && find.front()->get_option_no_throw("-" + word) != nullptr) word.insert(0, "-");
  });
}

// The command that the arguments name: "config set".
std::string UsedCommand(const CLI::App& parser) {
  std::string names;
  for (const CLI::App* app = &parser; !app->get_subcommands().empty();) {
    app = app->get_subcommands().front();
    names += (names.empty() ? "" : " ") + app->get_name();
  }
  return names;
}

// The first word that the parser could do nothing with, where it stands for a command: what to say of it, or "".
std::string UnknownCommand(const CLI::App& parser) {
  const std::vector<std::string> rest = parser.remaining();
  if (rest.empty() || rest.front().starts_with('-')) return {};
  return "no such command: " + rest.front();
}

// A line as a parsed command: an action that is empty when there is nothing to do, or none and an exit code.
struct ParsedLine {
  explicit ParsedLine(std::string_view line, Context& context) {
    const std::optional<std::vector<std::string>> words = SplitPatterns(line);
    if (!words || line.find('\0') != std::string_view::npos) {
      context.output.Error(words ? "a zero byte in a command" : "a quotation is not closed");
      code = kUsage;
      return;
    }
    if (words->empty() || words->front().starts_with('#')) return;
    AddCommands(parser, context, action);
    Parse(parser, *words, context.output, code);
  }

  CLI::App parser{"", ""};
  Action action;
  int code = kSuccess;
};

}  // namespace

std::span<const Command> CommandTable() { return kCommands; }

const Command* FindCommand(std::string_view name) {
  const auto* const found = std::ranges::find(kCommands, name, &Command::name);
  return found != std::end(kCommands) ? found : nullptr;
}

void AddCommands(CLI::App& parser, Context& context, Action& action) {
  parser.require_subcommand(0, 1);
  parser.allow_windows_style_options(false);
  parser.get_formatter()->label("SUBCOMMAND", "COMMAND [ARGUMENT...]");
  for (const Command& command : kCommands) {
    CLI::App* const sub = parser.add_subcommand(command.name, command.summary);
    sub->fallthrough()->group("Commands")->footer("");
    command.describe(*sub, context, action);
  }
  Unguard(parser);
}

bool Parse(CLI::App& parser, std::vector<std::string> arguments, const Output& output, int& code) {
  LengthenFindOptions(parser, arguments);
  std::ranges::for_each(arguments, Guard);
  std::ranges::reverse(arguments);
  try {
    parser.parse(std::move(arguments));
    return true;
  } catch (const CLI::Success& help) {
    code = kSuccess;
    parser.exit(help);
  } catch (const CLI::ParseError& error) {
    code = kUsage;
    const std::string command = UsedCommand(parser);
    const bool isLine = parser.get_name().empty();
    const std::string unknown = command.empty() ? UnknownCommand(parser) : std::string();
    output.Error((command.empty() ? "" : command + ": ") + Escape(Unquote(unknown.empty() ? error.what() : unknown)) +
                 "; see \"" + (isLine ? "" : parser.get_name() + " ") + "help" +
                 (command.empty() ? "" : " " + command) + "\"");
  }
  return false;
}

int RunLine(std::string_view line, Context& context) {
  context.isLine = true;
  const ParsedLine parsed(line, context);
  try {
    return parsed.action ? parsed.action() : parsed.code;
  } catch (const std::exception& error) {  // out of memory, for one: the lines that follow may do with less
    context.output.Error(error.what());
    return kFailure;
  }
}

bool CheckLine(std::string_view line, Context& context) { return ParsedLine(line, context).code == kSuccess; }

}  // namespace media_adapter::cli

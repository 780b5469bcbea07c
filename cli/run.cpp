#include "cli/run.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <sstream>

#include "cli/agent/agent.h"
#include "cli/commands/completion.h"
#include "cli/commands/shell.h"
#include "cli/commands/table.h"
#include "cli/console/interrupts.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/console/words.h"
#include "cli/local/defaults.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

struct GlobalOptions {
  SessionOptions session;
  std::string passwordFile;
  bool hasNoPassword = false;
  bool isPasswordAsked = false;
  bool isJson = false;
  bool isKeptGoing = false;
  bool doesNotWait = false;
  bool isAgentStarted = false;
  bool isAgentUnused = false;
  std::vector<std::string> commands;
};

// As the system's own shell takes them.
constexpr const char* kExamples =
    kIsDosHost ? "  media-adapter --device Lounge get -r /music %USERPROFILE%\\backup\n"
                 "  media-adapter put *.mp3 /music\n"
                 "  media-adapter -c \"mkdir -p /music/new\" -c \"put song.mp3 /music/new\" -c \"ls /music/new\"\n"
                 "  media-adapter shell\n"
               : "  media-adapter --device Lounge get -r /music ~/backup\n"
                 "  media-adapter -c 'mkdir -p /music/new' -c 'put song.mp3 /music/new' -c 'ls /music/new'\n"
                 "  media-adapter shell\n"
                 "  media-adapter --persist ls\n";
constexpr const char* kDefaultsFile =
    kIsDosHost ? "%APPDATA%\\media-adapter\\config" : "~/.config/media-adapter/config";

std::string Footer() {
  return std::string(
             "Without COMMAND, the commands of -c are run, or else those of a script on standard input.\n"
             "\n"
             "Examples:\n"
             "  media-adapter search\n"
             "  media-adapter ls /music\n") +
         kExamples +
         "\n"
         "Defaults come from the environment, MEDIA_ADAPTER_INTERFACE, MEDIA_ADAPTER_DEVICE and "
         "MEDIA_ADAPTER_PASSWORD_FILE,\n"
         "or from lines KEY=VALUE with the same keys in " +
         kDefaultsFile +
         ".\n"
         "\n"
         "Exit status: 0 done; 1 a device or the library refused, or something failed on the way; 2 wrong usage.";
}

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
  app.add_option("--interface", options.session.interfaceAddress,
                 "The local interface to use: its IPv4 address or name")
      ->type_name("INTERFACE");
  CLI::Option* const device =
      app.add_option(
             "--device", options.session.devices,
             "The device: its name, index, MAC or IPv4 address; needed when several answer. May be given several "
             "times for search, ls, tree, find, du, get, put, sync and config")
          ->type_name("DEVICE")
          ->allow_extra_args(false);
  app.add_flag("--all", options.session.isAll, "All devices that answer, for the same commands")->excludes(device);
  CLI::Option* const file = app.add_option("--password-file", options.passwordFile,
                                           "The first line of this file is the device's password; or lines "
                                           "NAME-OR-MAC:PASSWORD")
                                ->type_name("FILE");
  CLI::Option* const ask =
      app.add_flag("--ask-password", options.isPasswordAsked, "Ask for the device's password at the terminal");
  CLI::Option* const none =
      app.add_flag("--no-password", options.hasNoPassword, "The device has no password: never ask for one");
  file->excludes(ask)->excludes(none);
  ask->excludes(none);
  app.add_option("--tag", options.session.tag, "Number that the device repeats in its answers")
      ->type_name("0-3")
      ->check(CLI::Range(0, 3));
  app.add_flag("--json", options.isJson, "Print data as JSON, one line a command");
  app.add_option("-c,--command", options.commands, "Run this command; may be given several times")
      ->type_name("COMMAND")
      ->allow_extra_args(false);
  app.add_flag("--no-wait", options.doesNotWait, "Fail at once when another run works on the device's volume");
  CLI::Option* const start =
      app.add_flag("--persist", options.isAgentStarted,
                   "Start the agent first when none runs: later commands find the device at once");
  app.add_flag("--no-agent", options.isAgentUnused, "Run here, though an agent runs")->excludes(start);
  app.add_flag("--keep-going", options.isKeptGoing, "Do not stop at the first command of -c or a script that fails");
}

// The problem with the file, or "".
std::string ReadPasswords(const std::string& path, Passwords& passwords) {
  std::ifstream file(LocalPath(path), std::ios::binary);
  std::ostringstream text;
  if (!(text << file.rdbuf()) && file.peek() != std::ifstream::traits_type::eof()) return "cannot read the file";
  return file.is_open() ? passwords.Read(text.str()) : "cannot read the file";
}

// Fills in what no option gave. The problem, or "".
std::string ApplyDefaults(GlobalOptions& options) {
  Defaults defaults;
  if (std::string problem = ReadDefaults(defaults); !problem.empty()) return problem;
  SessionOptions& session = options.session;
  if (session.interfaceAddress.empty()) session.interfaceAddress = defaults.interfaceName;
  if (session.devices.empty() && !session.isAll && !defaults.device.empty()) session.devices = {defaults.device};
  const bool hasChoice = options.isPasswordAsked || options.hasNoPassword;
  if (options.passwordFile.empty() && !hasChoice) options.passwordFile = defaults.passwordFile;
  return {};
}

// Whatever tells passwords before the first request.
int TakePasswords(GlobalOptions& options, const Output& output) {
  if (!options.passwordFile.empty()) {
    const std::string problem = ReadPasswords(options.passwordFile, options.session.passwords);
    if (!problem.empty()) return output.Failed(Escape(options.passwordFile), Problem(problem), kUsage);
  }
  options.session.isPasswordFixed = !options.passwordFile.empty() || options.hasNoPassword;
  return kSuccess;
}

int RunCommands(const std::vector<std::string>& commands, Context& context) {
  // All are looked at first, so that a slip in the last one does not leave the others done.
  const auto checks = [&](const std::string& command) { return CheckLine(command, context); };
  if (!std::ranges::all_of(commands, checks)) return kUsage;
  int code = kSuccess;
  for (const std::string& command : commands) {
    const int commandCode = RunLine(command, context);
    if (code == kSuccess) code = commandCode;
    if ((commandCode != kSuccess && !context.isKeptGoing) || context.isLeaving || IsInterrupted()) break;
  }
  return code;
}

// All that one run consists of.
struct Invocation {
  explicit Invocation(KeptSearch* kept) : session(output, kept) {
    app.set_version_flag("--version", "media-adapter " MEDIA_ADAPTER_TOOL_VERSION);
    app.footer(Footer());
    AddGlobalOptions(app, options);
    AddCommands(app, context, action);
  }
  Invocation(const Invocation&) = delete;
  Invocation& operator=(const Invocation&) = delete;

  GlobalOptions options;
  Output output;
  Session session;
  VolumeWriter writer{session, output};
  Context context{session, output, writer};
  CLI::App app{"Finds media adapters, reads and writes their settings and the files behind them.", "media-adapter"};
  Action action;
};

// The agent keeps no person company, and those before it need the terminal to themselves.
bool IsForAgent(const CLI::App& app, const std::vector<std::string>& commands) {
  const auto isOwn = [](const std::string& name) {
    const Command* const command = FindCommand(name);
    return command != nullptr && command->isOwn;
  };
  const auto isOwnLine = [&](const std::string& line) {
    const auto words = SplitWords(line);
    return words && !words->empty() && isOwn(words->front());
  };
  if (!app.get_subcommands().empty()) return !isOwn(app.get_subcommands().front()->get_name());
  if (!commands.empty()) return std::ranges::none_of(commands, isOwnLine);
  return !IsInputTerminal();
}

std::optional<int> AskAgent(const std::vector<std::string>& arguments, const GlobalOptions& options,
                            const Output& output) {
  if (options.isAgentStarted) {
    AgentOptions agent;
    agent.interfaceAddress = options.session.interfaceAddress;
    if (StartAgent(agent, output) != kSuccess) return std::nullopt;  // which has been said
  }
  return options.isAgentUnused ? std::nullopt
                               : RunThroughAgent(arguments, {.doesNotWait = options.doesNotWait}, output);
}

// "media-adapter __complete bash LINE" or "... zsh WORD...", for the files in cli/completions: prints what may stand in
// the last word, a line each, with a summary behind a tab where there is one.
bool IsCompletion(const std::vector<std::string>& arguments) {
  return arguments.size() > 2 && arguments.front() == "__complete";
}

int RunCompletion(const std::vector<std::string>& arguments, KeptSearch* kept, bool mayAskAgent) {
  std::vector<std::string> words(arguments.begin() + 2, arguments.end());
  if (arguments[1] == "bash") {
    words = SplitBashLine(arguments[2]);
    words.erase(words.begin());
  }
  if (words.empty()) return kSuccess;
  const std::string typed = words.back();
  words.pop_back();
  Invocation run(kept);
  CLI::App& app = run.app;
  GlobalOptions& options = run.options;
  options.session.devices = OptionValues(app, words, "--device");
  for (const std::string& value : OptionValues(app, words, "--interface")) options.session.interfaceAddress = value;
  for (const std::string& value : OptionValues(app, words, "--password-file")) options.passwordFile = value;
  const bool isReady =
      ApplyDefaults(options).empty() &&
      (options.passwordFile.empty() || ReadPasswords(options.passwordFile, options.session.passwords).empty());
  if (kept != nullptr && (!isReady || !run.session.OpenAsKept(options.session))) {
    return RunCompletion(arguments, nullptr, false);
  }
  const Candidates found = FindCandidates(app, words, typed, run.context);
  if (found.isAboutDevices && mayAskAgent) {
    if (const auto done = RunThroughAgent(arguments, {.isQuick = true}, run.output)) return *done;
  }
  for (const Candidate& item : found.items) {
    const std::string summary = item.summary.empty() ? "" : "\t" + item.summary;
    run.output.Line(found.prefix + item.text + summary);
  }
  return kSuccess;
}

int RunTool(const std::vector<std::string>& arguments, KeptSearch* kept) {
  if (IsCompletion(arguments)) return RunCompletion(arguments, kept, kept == nullptr);
  Invocation run(kept);
  auto& [options, output, session, writer, context, app, action] = run;
  int code = kSuccess;
  if (!Parse(app, arguments, output, code)) return code;

  if (action && !options.commands.empty()) return output.Failed("-c", Problem("not together with a command"), kUsage);
  if (const std::string problem = ApplyDefaults(options); !problem.empty()) {
    return output.Failed("defaults", Problem(problem), kUsage);
  }
  output.isJson = options.isJson;
  if (kept == nullptr && IsForAgent(app, options.commands)) {
    if (const std::optional<int> done = AskAgent(arguments, options, output)) return *done;
  }
  if (code = TakePasswords(options, output); code != kSuccess) return code;
  context.isKeptGoing = options.isKeptGoing;
  context.isInAgent = kept != nullptr;
  writer.doesWait = !options.doesNotWait;
  options.session.isPasswordAsked = options.isPasswordAsked;
  if (const Answer answer = session.Open(options.session); !answer.IsOk()) {
    const bool isText = answer.status == MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS;
    return output.Failed("--interface " + Escape(options.session.interfaceAddress), answer, isText ? kUsage : kFailure);
  }
  if (action) return action();
  if (!options.commands.empty()) return RunCommands(options.commands, context);
  if (!IsInputTerminal()) return RunScript(context);
  Print(stderr, app.help());
  return kUsage;
}

}  // namespace

int Run(const std::vector<std::string>& arguments, KeptSearch* kept) try {
  const int code = RunTool(arguments, kept);
  const bool isWritten = Output::Flush();
  EndIfInterrupted();
  if (isWritten) return code;
  Print(stderr, "media-adapter: cannot write to standard output\n");
  return code == kSuccess ? kFailure : code;
} catch (const std::exception& error) {
  Print(stderr, "media-adapter: " + std::string(error.what()) + "\n");
  return kFailure;
}

}  // namespace media_adapter::cli

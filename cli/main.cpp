// media-adapter: finds media adapters, reads and writes their settings and the files behind them.
// Exit status: 0 done, 1 a device or the library refused or something failed on the way, 2 wrong usage.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <fstream>
#include <iostream>

#include "cli/commands.h"
#include "cli/interrupts.h"
#include "cli/shell.h"
#include "cli/terminal.h"
#include "cli/text.h"

namespace {

using namespace media_adapter::cli;

struct GlobalOptions {
  SessionOptions session;
  std::string passwordFile;
  bool hasNoPassword = false;
  bool isJson = false;
  bool isKeptGoing = false;
  bool doesNotWait = false;
  std::vector<std::string> commands;
};

constexpr const char* kFooter =
    "Without COMMAND, the commands of -c are run, or else those of a script on standard input.\n"
    "\n"
    "Examples:\n"
    "  media-adapter search\n"
    "  media-adapter ls /music\n"
    "  media-adapter --device Lounge get -r /music ~/backup\n"
    "  media-adapter -c 'mkdir -p /music/new' -c 'put song.mp3 /music/new' -c 'ls /music/new'\n"
    "  media-adapter shell\n"
    "\n"
    "Exit status: 0 done; 1 a device or the library refused, or something failed on the way; 2 wrong usage.";

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
  app.add_option("--interface", options.session.interfaceAddress, "IPv4 address of the local interface to use")
      ->type_name("ADDRESS");
  app.add_option("--device", options.session.device, "The device: its name, index or MAC; needed when several answer")
      ->type_name("DEVICE");
  CLI::Option* const file =
      app.add_option("--password-file", options.passwordFile, "The first line of this file is the device's password")
          ->type_name("FILE");
  CLI::Option* const ask =
      app.add_flag("--ask-password", options.session.isPasswordAsked, "Ask for the device's password at the terminal");
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
  app.add_flag("--keep-going", options.isKeptGoing, "Do not stop at the first command of -c or a script that fails");
}

// The password: the first line of the file. The problem, or "".
std::string ReadPassword(const std::string& path, std::string& password) {
  std::ifstream file(path, std::ios::binary);
  if (!std::getline(file, password) && !file.eof()) return "cannot read the file";
  if (password.ends_with('\r')) password.pop_back();
  if (password.find('\0') != std::string::npos) return "a zero byte in the password";
  if (password.size() > MEDIA_ADAPTER_MAX_PASSWORD) {
    return "the password is longer than " + std::to_string(MEDIA_ADAPTER_MAX_PASSWORD) + " characters";
  }
  return {};
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

int Run(std::vector<std::string> arguments) {
  GlobalOptions options;
  Output output;
  Session session(output);
  VolumeWriter writer(session, output);
  Context context{session, output, writer};
  CLI::App app("Finds media adapters, reads and writes their settings and the files behind them.", "media-adapter");
  app.set_version_flag("--version", "media-adapter " MEDIA_ADAPTER_VERSION);
  app.footer(kFooter);
  AddGlobalOptions(app, options);
  Action action;
  AddCommands(app, context, action);
  int code = kSuccess;
  if (!Parse(app, std::move(arguments), output, code)) return code;

  if (action && !options.commands.empty()) return output.Failed("-c", Problem("not together with a command"), kUsage);
  if (!options.passwordFile.empty()) {
    const std::string problem = ReadPassword(options.passwordFile, options.session.password);
    if (!problem.empty()) return output.Failed(Escape(options.passwordFile), Problem(problem), kUsage);
  }
  options.session.isPasswordFixed = !options.passwordFile.empty() || options.hasNoPassword;
  output.isJson = options.isJson;
  context.isKeptGoing = options.isKeptGoing;
  writer.doesWait = !options.doesNotWait;
  if (const Answer answer = session.Open(options.session); !answer.IsOk()) {
    const bool isText = answer.status == MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS;
    return output.Failed("--interface " + Escape(options.session.interfaceAddress), answer, isText ? kUsage : kFailure);
  }
  if (action) return action();
  if (!options.commands.empty()) return RunCommands(options.commands, context);
  if (!IsInputTerminal()) return RunScript(context);
  std::cerr << app.help();
  return kUsage;
}

}  // namespace

int main(int argc, char** argv) try {
  PrepareStreams();
  const int code = Run({argv + 1, argv + argc});
  const bool isWritten = Output::Flush();
  EndIfInterrupted();
  if (isWritten) return code;
  std::cerr << "media-adapter: cannot write to standard output\n";
  return code == kSuccess ? kFailure : code;
} catch (const std::exception& error) {
  std::cerr << "media-adapter: " << error.what() << '\n';
  return kFailure;
}

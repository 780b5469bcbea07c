// The commands of the tool: one table of names, summaries and what completes them, served alike by the command line,
// -c, scripts and the shell. A command is described to the option parser and run in one place, whichever way it came.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/console/output.h"
#include "cli/device/session.h"
#include "cli/device/volume_writer.h"

namespace media_adapter::cli {

struct Context {
  Session& session;
  Output& output;
  VolumeWriter& writer;
  bool isKeptGoing = false;  // a script does not stop at a command that fails
  bool isInShell = false;
  bool isInAgent = false;
  bool isLine = false;     // of -c, a script or the shell: patterns for local files are not yet taken apart
  bool isLeaving = false;  // set by "exit"
};

// The type of an option whose words may be patterns; they come with the marks of cli/console/wildcards.h.
inline constexpr const char* kPattern = "PATTERN";

// What a parsed command does; returns an exit code.
using Action = std::function<int()>;

// What the words behind a command's name are completed to.
enum class Completes : uint8_t {
  Nothing,
  Commands,
  Devices,
  DevicePaths,
  DeviceThenLocalPaths,  // local ones where none on the device fit
  LocalThenDevicePaths,
  LocalPaths,
  Settings,  // of "config", by the command behind it
};

struct Command {
  const char* name;
  const char* summary;
  // Adds the command's options and arguments to `parser`, and a callback that sets `action` once they are parsed.
  void (*describe)(CLI::App& parser, Context& context, Action& action);
  Completes completes;
  bool isOwn = false;  // never handed over to the agent: about the process itself, or the person before it
};

std::span<const Command> CommandTable();
// Null when there is none of this name.
const Command* FindCommand(std::string_view name);

// Adds every command to `parser`, of which a line holds one at most. Last, after the parser's own options.
void AddCommands(CLI::App& parser, Context& context, Action& action);

// Runs one line of a script, of -c or of the shell; an empty line or a comment (#...) does nothing.
int RunLine(std::string_view line, Context& context);
// True when the line would be taken; prints what is wrong with it otherwise.
bool CheckLine(std::string_view line, Context& context);

// Parses `arguments` and prints what is wrong with them, or the help that they ask for. True when they can be carried
// out; otherwise `code` is the exit code.
bool Parse(CLI::App& parser, std::vector<std::string> arguments, const Output& output, int& code);

// The descriptions in the table. A command's source file has its name.
void DescribeSearch(CLI::App& parser, Context& context, Action& action);
void DescribeDeviceCommand(CLI::App& parser, Context& context, Action& action);
void DescribeConnect(CLI::App& parser, Context& context, Action& action);
void DescribeDisconnect(CLI::App& parser, Context& context, Action& action);
void DescribeIp(CLI::App& parser, Context& context, Action& action);
void DescribeTest(CLI::App& parser, Context& context, Action& action);
void DescribeConfig(CLI::App& parser, Context& context, Action& action);
void DescribeList(CLI::App& parser, Context& context, Action& action);
void DescribeGet(CLI::App& parser, Context& context, Action& action);
void DescribePut(CLI::App& parser, Context& context, Action& action);
void DescribeSync(CLI::App& parser, Context& context, Action& action);
void DescribeMakeFolder(CLI::App& parser, Context& context, Action& action);
void DescribeCopy(CLI::App& parser, Context& context, Action& action);
void DescribeMove(CLI::App& parser, Context& context, Action& action);
void DescribeRemove(CLI::App& parser, Context& context, Action& action);
void DescribePrintFiles(CLI::App& parser, Context& context, Action& action);
void DescribeFind(CLI::App& parser, Context& context, Action& action);
void DescribeTree(CLI::App& parser, Context& context, Action& action);
void DescribeUsage(CLI::App& parser, Context& context, Action& action);
void DescribeFormat(CLI::App& parser, Context& context, Action& action);
void DescribeChangeFolder(CLI::App& parser, Context& context, Action& action);
void DescribeLocalChange(CLI::App& parser, Context& context, Action& action);
void DescribeLocalList(CLI::App& parser, Context& context, Action& action);
void DescribeLocalPath(CLI::App& parser, Context& context, Action& action);
void DescribePrintFolder(CLI::App& parser, Context& context, Action& action);
void DescribeHelp(CLI::App& parser, Context& context, Action& action);
void DescribeExit(CLI::App& parser, Context& context, Action& action);
void DescribeAgent(CLI::App& parser, Context& context, Action& action);
void DescribeShell(CLI::App& parser, Context& context, Action& action);

}  // namespace media_adapter::cli

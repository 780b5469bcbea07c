// The agent: a process of this user in the background that has loaded the library and searched, so that a command finds
// its device at once. It is started by "media-adapter agent" or --persist; every run of the tool looks for it and hands
// its command over, together with its standard streams, current folder and environment. The agent itself never touches
// the library: it keeps workers, processes that run one command after another, and soon replaces one that has run
// something by a new one, because the library never looks again at a volume that it has once mounted.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/console/output.h"
#include "cli/device/session.h"

namespace media_adapter::cli {

inline constexpr int kAgentIdleSeconds = 600;

struct AgentOptions {
  std::string interfaceAddress;  // to search by
  int idleSeconds = kAgentIdleSeconds;
  bool isForeground = false;
  bool isDetached = false;  // started by StartAgent: leaves the caller's streams and folder once it is ready
};

// Exit codes; failures have been printed. Starting one where one runs already is a success, in the foreground none.
int StartAgent(const AgentOptions& options, const Output& output);
int ServeAsAgent(const AgentOptions& options, const Output& output);
// Lets the running commands end, and with `isWaiting` waits for that.
int StopAgent(bool isWaiting, const Output& output);
int ShowAgent(const Output& output);

struct AgentUse {
  bool doesNotWait = false;  // --no-wait: a failure when the agent is busy
  bool isQuick = false;      // not at all unless the agent can begin at once
};

// Has the agent run the command with this process's streams, and ends this process as the command was ended. None when
// no agent runs, or none of this very version: nothing was done then.
std::optional<int> RunThroughAgent(const std::vector<std::string>& arguments, AgentUse use, const Output& output);

// What a worker is started as.
bool IsAgentWorker(const std::vector<std::string>& arguments);
using RunFunction = int (*)(const std::vector<std::string>& arguments, KeptSearch* kept);
int RunAgentWorker(const std::vector<std::string>& arguments, RunFunction run);

}  // namespace media_adapter::cli

// There is no agent on this system: every run searches by itself.
#include "cli/agent/agent.h"

namespace media_adapter::cli {
namespace {

int Refuse(const Output& output) { return output.Failed("agent", Problem("not on this system"), kUsage); }

}  // namespace

int StartAgent(const AgentOptions&, const Output& output) { return Refuse(output); }
int ServeAsAgent(const AgentOptions&, const Output& output) { return Refuse(output); }
int StopAgent(bool, const Output& output) { return Refuse(output); }
int ShowAgent(const Output& output) { return Refuse(output); }

std::optional<int> RunThroughAgent(const std::vector<std::string>&, AgentUse, const Output&) { return std::nullopt; }

bool IsAgentWorker(const std::vector<std::string>&) { return false; }
int RunAgentWorker(const std::vector<std::string>&, RunFunction) { return kUsage; }

}  // namespace media_adapter::cli

// The "agent" command.
#include "cli/agent/agent.h"

#include <memory>

#include "cli/commands/table.h"

namespace media_adapter::cli {
namespace {

struct Options {
  AgentOptions agent;
  bool isStopped = false;
  bool isShown = false;
};

int RunAgent(const Context& context, Options options) {
  if (options.isStopped) return StopAgent(!context.isInAgent, context.output);
  if (options.isShown) return ShowAgent(context.output);
  options.agent.interfaceAddress = context.session.Interface();
  return options.agent.isForeground ? ServeAsAgent(options.agent, context.output)
                                    : StartAgent(options.agent, context.output);
}

}  // namespace

void DescribeAgent(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<Options>();
  CLI::Option* const stop = parser.add_flag("--stop", options->isStopped, "End the agent that runs");
  CLI::Option* const show = parser.add_flag("--status", options->isShown, "Show the agent that runs");
  parser.add_flag("--foreground", options->agent.isForeground, "Do not go into the background")
      ->excludes(stop)
      ->excludes(show);
  parser.add_option("--idle", options->agent.idleSeconds, "End after so many seconds without a command; 600")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 1000000));
  parser.add_flag("--detached", options->agent.isDetached)->group("");
  stop->excludes(show);
  parser.callback([=, &context, &action] { action = [=, &context] { return RunAgent(context, *options); }; });
}

}  // namespace media_adapter::cli

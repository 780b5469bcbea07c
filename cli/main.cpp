// media-adapter: finds media adapters, reads and writes their settings and the files behind them.
// Exit status: 0 done, 1 a device or the library refused or something failed on the way, 2 wrong usage.
#include "cli/agent/agent.h"
#include "cli/console/terminal.h"
#include "cli/run.h"

int main(int argc, char** argv) {
  media_adapter::cli::PrepareStreams();
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (media_adapter::cli::IsAgentWorker(arguments)) {
    return media_adapter::cli::RunAgentWorker(arguments, media_adapter::cli::Run);
  }
  return media_adapter::cli::Run(arguments, nullptr);
}

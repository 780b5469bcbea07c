// media-adapter: finds media adapters, reads and writes their settings and the files behind them.
// Exit status: 0 done, 1 a device or the library refused or something failed on the way, 2 wrong usage.
#include "cli/agent/agent.h"
#include "cli/console/output.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/local/environment.h"
#include "cli/local/local_text.h"
#include "cli/run.h"

namespace cli = media_adapter::cli;

int main(int argc, char** argv) {
  cli::PrepareStreams();
  std::vector<std::string> arguments;
  for (const auto& argument : cli::Arguments(argc, argv)) {
    const auto text = cli::ExactText(argument);
    if (!text) {
      const std::string shown = cli::Escape(cli::LocalText(argument));
      return cli::Output().Failed(shown, cli::Problem(cli::NoTextProblem()), cli::kUsage);
    }
    arguments.push_back(*text);
  }
  return cli::IsAgentWorker(arguments) ? cli::RunAgentWorker(arguments, cli::Run) : cli::Run(arguments, nullptr);
}

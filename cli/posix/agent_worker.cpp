// A worker: a process with the library loaded and searched. It dies of a signal as any run of the tool does, and the
// agent tells that to whom it worked for.
#include <fcntl.h>
#include <sys/prctl.h>

#include <csignal>

#include "cli/agent/agent.h"
#include "cli/posix/agent_keeper.h"
#include "cli/posix/handed_run.h"

namespace media_adapter::cli {

bool IsAgentWorker(const std::vector<std::string>& arguments) {
  return !arguments.empty() && arguments.front() == kWorkerArgument;
}

int RunAgentWorker(const std::vector<std::string>& arguments, RunFunction run) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const Descriptor channel(kWorkerChannel);
  fcntl(channel.Get(), F_SETFD, FD_CLOEXEC);
  KeptSearch kept;
  {
    const Output output;
    Session session(output, &kept);
    SessionOptions options;
    if (arguments.size() > 1) options.interfaceAddress = arguments[1];
    if (session.Open(std::move(options)).IsOk()) session.Search();
  }
  Send(channel.Get(), MessageKind::Ready, Identity());
  while (std::optional<Message> message = Receive(channel.Get())) {
    int code = kFailure;
    {
      const Surroundings surroundings(std::move(message->files));
      if (surroundings.IsWhole()) code = run(surroundings.Arguments(), &kept);
    }
    const std::string interface = kept.wanted ? " " + *kept.wanted : std::string();
    Send(channel.Get(), MessageKind::Ended, std::to_string(code) + interface);
  }
  return kSuccess;
}

}  // namespace media_adapter::cli

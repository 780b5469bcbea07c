// The agent as seen from a run of the tool: starting it, asking it, and handing a command over to it.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "cli/agent/agent.h"
#include "cli/posix/agent_keeper.h"
#include "cli/posix/handed_run.h"
#include "cli/posix/runtime_folder.h"

namespace media_adapter::cli {
namespace {

using namespace std::chrono_literals;

constexpr std::array<int, 3> kForwarded = {SIGINT, SIGTERM, SIGHUP};
constexpr auto kStartTime = 5s;

struct Status {
  pid_t process = 0;
  unsigned runs = 0, running = 0;
  bool isReady = false;
  int secondsLeft = 0;
  bool isSameVersion = false;
};

std::optional<Status> AskStatus() {
  const Descriptor agent = Connect();
  if (!agent.IsOpen() || !Send(agent.Get(), MessageKind::Status, Identity())) return std::nullopt;
  const std::optional<Message> answer = Receive(agent.Get());
  if (!answer || answer->kind != MessageKind::Status) return std::nullopt;
  Status status;
  status.process = PeerProcess(agent.Get());
  std::istringstream text(answer->text);
  text >> status.runs >> status.running >> status.isReady >> status.secondsLeft >> status.isSameVersion;
  return status;
}

int OtherVersion(const Status& status, const Output& output) {
  return output.Failed("agent", Problem("one of another version, or of another network, runs as process " +
                                        std::to_string(status.process) + "; \"agent --stop\" ends it"));
}

// The answer of an agent that runs already, if one does.
std::optional<int> FindAgent(const Output& output) {
  const std::optional<Status> status = AskStatus();
  if (!status) return std::nullopt;
  return status->isSameVersion ? kSuccess : OtherVersion(*status, output);
}

// A session of its own, so that no terminal's signals reach it, and none of the caller's files but the streams.
pid_t SpawnDetached(std::vector<std::string> arguments) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  pid_t process = -1;
  const int error = posix_spawn(&process, "/proc/self/exe", &files, &attributes, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  return error == 0 ? process : -1;
}

void LeaveCaller() {
  const Descriptor none(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(none.Get(), stream);
  [[maybe_unused]] const int result = chdir("/");
}

[[noreturn]] void DieOf(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  raise(signal);
  _exit(128 + signal);
}

// The connection that signals go to while a command runs elsewhere.
std::atomic<int> connection = -1;
std::atomic<int> signalCount = 0;
static_assert(std::atomic<int>::is_always_lock_free);

// The first lets a running request end, the second stops it; a third is for an agent that does not listen.
void Forward(int signal) {
  constexpr int kPatience = 3;
  if (++signalCount >= kPatience) DieOf(signal);
  const std::array<char, 2> message = {static_cast<char>(MessageKind::Interrupt), static_cast<char>(signal)};
  const int error = errno;  // of what was interrupted
  send(connection, message.data(), message.size(), MSG_NOSIGNAL);
  errno = error;
}

void ForwardSignals(int agent) {
  connection = agent;
  for (const int signal : kForwarded) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = Forward;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace

int StartAgent(const AgentOptions& options, const Output& output) {
  if (const std::optional<int> found = FindAgent(output)) {
    if (*found == kSuccess) output.Note("an agent runs already");
    return *found;
  }
  std::vector<std::string> arguments = {"media-adapter", "agent",  "--foreground",
                                        "--detached",    "--idle", std::to_string(options.idleSeconds)};
  if (!options.interfaceAddress.empty()) {
    arguments.insert(arguments.end(), {"--interface", options.interfaceAddress});
  }
  const pid_t process = SpawnDetached(std::move(arguments));
  const auto end = std::chrono::steady_clock::now() + kStartTime;
  int status = 0;
  // One that has ended may have met another that was started at the same time.
  for (bool hasEnded = process < 0; std::chrono::steady_clock::now() < end && !(hasEnded && status != 0);) {
    if (const std::optional<int> found = FindAgent(output)) return *found;
    hasEnded = hasEnded || waitpid(process, &status, WNOHANG) == process;
    std::this_thread::sleep_for(10ms);
  }
  return output.Failed("agent", Problem("could not be started"));
}

int ServeAsAgent(const AgentOptions& options, const Output& output) {
  if (RuntimeFolder().empty()) {
    return output.Failed("agent", Problem("there is no folder for its socket that only this user can look into"));
  }
  const Descriptor lock = TakeAgentLock();
  if (!lock.IsOpen()) {
    return options.isDetached ? kSuccess : output.Failed("agent", Problem("an agent runs already"));
  }
  sigset_t ending;
  sigemptyset(&ending);
  for (const int signal : kForwarded) sigaddset(&ending, signal);
  sigprocmask(SIG_BLOCK, &ending, nullptr);
  Descriptor signals(signalfd(-1, &ending, SFD_CLOEXEC));
  Descriptor listener = Listen();
  if (!listener.IsOpen()) return output.Failed("agent", Problem("cannot make its socket"));
  if (options.isDetached) LeaveCaller();
  AgentKeeper(std::move(listener), std::move(signals), options).Run();
  return kSuccess;
}

int StopAgent(bool isWaiting, const Output& output) {
  const Descriptor agent = Connect();
  if (!agent.IsOpen() || !Send(agent.Get(), MessageKind::Stop)) {
    return output.Failed("agent --stop", Problem("no agent runs"));
  }
  while (isWaiting && Receive(agent.Get())) {
  }
  if (output.isJson) output.Json(AnswerJson({0, "stopped"}));
  return kSuccess;
}

int ShowAgent(const Output& output) {
  const std::optional<Status> status = AskStatus();
  if (!status) return output.Failed("agent --status", Problem("no agent runs"));
  if (!status->isSameVersion) return OtherVersion(*status, output);
  if (output.isJson) {
    output.Json({{"process", status->process},
                 {"ready", status->isReady},
                 {"running", status->running},
                 {"commands", status->runs},
                 {"endsAfter", status->secondsLeft}});
    return kSuccess;
  }
  const Column columns[] = {{"PROCESS", true}, {"STATE"}, {"RUNNING", true}, {"COMMANDS", true}, {"ENDS AFTER", true}};
  const Row row = {std::to_string(status->process), status->isReady ? "ready" : "searching",
                   std::to_string(status->running), std::to_string(status->runs),
                   std::to_string(status->secondsLeft) + " s"};
  output.Table(columns, {&row, 1});
  return kSuccess;
}

std::optional<int> RunThroughAgent(const std::vector<std::string>& arguments, AgentUse use, const Output& output) {
  const Descriptor agent = Connect();
  if (!agent.IsOpen()) return std::nullopt;
  const std::optional<HandedRun> run = HandedRun::Make(arguments);
  const auto kind = use.isQuick ? MessageKind::RunNow : MessageKind::Run;
  if (!run || !Send(agent.Get(), kind, Identity(), run->Files())) return std::nullopt;
  bool isStarted = false;
  while (const std::optional<Message> message = Receive(agent.Get())) {
    const int number = static_cast<int>(std::strtol(message->text.c_str(), nullptr, 10));
    switch (message->kind) {
      case MessageKind::Searching:
        output.Fleeting("searching...");
        break;
      case MessageKind::Busy:
        if (use.doesNotWait) return output.Failed("agent", Problem("runs other commands; nothing was sent"));
        output.Error("waiting: the agent runs other commands; --no-agent does without it");
        break;
      case MessageKind::Started:
        output.Fleeting("");
        ForwardSignals(agent.Get());
        isStarted = true;
        break;
      case MessageKind::Ended:
        return number;
      case MessageKind::Killed:
        DieOf(number);
      default:
        output.Fleeting("");
        return std::nullopt;
    }
  }
  output.Fleeting("");
  if (!isStarted) return std::nullopt;
  return output.Failed("agent", Problem("ended before the command had; what it did is not known"));
}

}  // namespace media_adapter::cli

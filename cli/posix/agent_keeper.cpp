#include "cli/posix/agent_keeper.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <csignal>

namespace media_adapter::cli {
namespace {

// Commands that run at the same time, and the worker for the next one. Each has a library and a search of its own.
constexpr size_t kMaxWorkers = 4;

bool HasNews(const std::vector<pollfd>& polled, int file) {
  return std::ranges::any_of(polled, [=](const pollfd& p) { return p.fd == file && p.revents != 0; });
}

// How a process ended, as its client is told.
std::pair<MessageKind, std::string> EndOf(pid_t process) {
  int status = 0;
  if (waitpid(process, &status, 0) != process) return {MessageKind::Ended, "1"};
  if (WIFSIGNALED(status)) return {MessageKind::Killed, std::to_string(WTERMSIG(status))};
  return {MessageKind::Ended, std::to_string(WEXITSTATUS(status))};
}

}  // namespace

AgentKeeper::AgentKeeper(Descriptor listener, Descriptor signals, const AgentOptions& options)
    : idleSeconds_(options.idleSeconds),
      interface_(options.interfaceAddress),
      listener_(std::move(listener)),
      signals_(std::move(signals)) {}

void AgentKeeper::Run() {
  while (!isStopping_ || !workers_.empty()) {
    if (IsIdle() && Patience() == 0) Stop();
    if (isStopping_) Close();
    StartRuns();
    KeepWorkers();
    WaitForNews();
  }
  Close();
}

bool AgentKeeper::IsIdle() const {
  return std::ranges::none_of(clients_, [](const Client& c) { return c.isWaiting || c.worker != 0; });
}

// Milliseconds until the idle time is over.
int AgentKeeper::Patience() const {
  const auto left = lastUse_ + std::chrono::seconds(idleSeconds_) - Clock::now();
  return std::max(0, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
}

void AgentKeeper::WaitForNews() {
  std::vector<pollfd> polled = {{signals_.Get(), POLLIN, 0}, {listener_.Get(), POLLIN, 0}};
  for (const Worker& worker : workers_) polled.push_back({worker.channel.Get(), POLLIN, 0});
  for (const Client& client : clients_) polled.push_back({client.socket.Get(), POLLIN, 0});
  if (poll(polled.data(), polled.size(), !isStopping_ && IsIdle() ? Patience() : -1) <= 0) return;
  if (HasNews(polled, signals_.Get())) TakeSignal();
  // What a worker tells comes first: its command may have ended before its client asked for that.
  std::erase_if(workers_, [&](Worker& w) { return HasNews(polled, w.channel.Get()) && !TakeReport(w); });
  std::erase_if(clients_, [&](Client& c) { return HasNews(polled, c.socket.Get()) && !TakeRequest(c); });
  if (listener_.IsOpen() && HasNews(polled, listener_.Get())) TakeClient();
}

void AgentKeeper::TakeSignal() {
  signalfd_siginfo signal = {};
  [[maybe_unused]] const ssize_t size = read(signals_.Get(), &signal, sizeof signal);
  for (const Worker& worker : workers_) {
    if (worker.state == State::Running) kill(worker.process, SIGTERM);
  }
  Stop();
}

void AgentKeeper::TakeClient() {
  Descriptor socket = Accept(listener_.Get());
  if (socket.IsOpen()) clients_.push_back({.socket = std::move(socket), .files = {}});
}

// False when the client is done with, or has gone: its command ends as if its terminal had.
bool AgentKeeper::TakeRequest(Client& client) {
  std::optional<Message> message = Receive(client.socket.Get());
  if (!message) {
    if (client.worker != 0) kill(client.worker, SIGHUP);
    return false;
  }
  switch (message->kind) {
    case MessageKind::Run:
    case MessageKind::RunNow:
      if (isStopping_ || message->text != identity_ || client.isWaiting || client.worker != 0 ||
          (message->kind == MessageKind::RunNow && FreeWorker() == nullptr)) {
        Send(client.socket.Get(), MessageKind::Refused);
        return false;
      }
      client.files = std::move(message->files);
      client.isWaiting = true;
      return true;
    case MessageKind::Interrupt:
      if (client.worker != 0 && message->text.size() == 1) kill(client.worker, message->text.front());
      return true;
    case MessageKind::Status:
      Send(client.socket.Get(), MessageKind::Status, StatusText() + (message->text == identity_ ? " 1" : " 0"));
      return false;
    case MessageKind::Stop:
      Stop();
      return true;
    default:
      return false;
  }
}

// False when the worker has ended.
bool AgentKeeper::TakeReport(Worker& worker) {
  const std::optional<Message> message = Receive(worker.channel.Get());
  if (message && message->kind == MessageKind::Ready) {
    worker.state = worker.state == State::Searching ? State::Idle : worker.state;
    if (message->text != identity_) Stop();  // the program or the library has been replaced
  } else if (message && message->kind == MessageKind::Ended) {
    const size_t space = message->text.find(' ');
    Finish(worker, message->kind, message->text.substr(0, space));
    if (space != std::string::npos) interface_ = message->text.substr(space + 1);
    worker.state = State::Idle;
  } else {
    const auto [kind, text] = EndOf(worker.process);
    Finish(worker, kind, text);
    if (worker.state == State::Searching) Stop();  // the next one would end as well
    return false;
  }
  return true;
}

void AgentKeeper::Finish(const Worker& worker, MessageKind kind, const std::string& text) {
  const auto client = std::ranges::find(clients_, worker.process, &Client::worker);
  if (client == clients_.end()) return;
  Send(client->socket.Get(), kind, text);
  clients_.erase(client);
  lastUse_ = Clock::now();
}

// One that has run nothing yet, if there is one.
AgentKeeper::Worker* AgentKeeper::FreeWorker() {
  Worker* free = nullptr;
  for (Worker& worker : workers_) {
    if (worker.state == State::Idle && (free == nullptr || !worker.isUsed)) free = &worker;
  }
  return free;
}

void AgentKeeper::StartRuns() {
  for (Client& client : clients_) {
    if (!client.isWaiting) continue;
    Worker* const worker = FreeWorker();
    if (worker == nullptr) {
      const bool isSearching = CountWorkers(State::Searching, false) > 0 || workers_.size() < kMaxWorkers;
      if (!client.isTold) Send(client.socket.Get(), isSearching ? MessageKind::Searching : MessageKind::Busy);
      client.isTold = true;
      continue;
    }
    std::vector<int> files;
    for (const Descriptor& file : client.files) files.push_back(file.Get());
    Send(worker->channel.Get(), MessageKind::Run, {}, files);
    Send(client.socket.Get(), MessageKind::Started);
    client.files.clear();
    client.isWaiting = false;
    client.worker = worker->process;
    worker->state = State::Running;
    worker->isUsed = true;
    ++runs_;
  }
}

size_t AgentKeeper::CountWorkers(State state, bool isUsed) const {
  return static_cast<size_t>(
      std::ranges::count_if(workers_, [=](const Worker& w) { return w.state == state && w.isUsed == isUsed; }));
}

// A worker that has run something goes once a new one is ready.
void AgentKeeper::KeepWorkers() {
  const bool isNewReady = CountWorkers(State::Idle, false) > 0;
  for (Worker& worker : workers_) {
    const bool isOver = isStopping_ || (worker.isUsed && isNewReady);
    if (worker.state == State::Searching && isStopping_) {
      kill(worker.process, SIGTERM);
    } else if (worker.state == State::Idle && isOver) {
      shutdown(worker.channel.Get(), SHUT_WR);
    } else {
      continue;
    }
    worker.state = State::Leaving;
  }
  const auto isWaiting = [](const Client& c) { return c.isWaiting; };
  const auto wanted = std::max<size_t>(1, static_cast<size_t>(std::ranges::count_if(clients_, isWaiting)));
  while (!isStopping_ && workers_.size() < kMaxWorkers &&
         CountWorkers(State::Idle, false) + CountWorkers(State::Searching, false) < wanted) {
    if (!StartWorker()) Stop();
  }
}

bool AgentKeeper::StartWorker() {
  std::array<int, 2> ends = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
  Descriptor own(ends[0]);
  const Descriptor other(ends[1]);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&files, stream, "/dev/null", O_RDWR, 0);
  }
  posix_spawn_file_actions_adddup2(&files, other.Get(), kWorkerChannel);
  posix_spawn_file_actions_addclosefrom_np(&files, kWorkerChannel + 1);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  // A session of its own: what is typed at the terminal of an agent in the foreground is no signal to it.
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  std::string program = "media-adapter", argument = kWorkerArgument, interface = interface_;
  const std::array<char*, 4> arguments = {program.data(), argument.data(), interface.data(), nullptr};
  pid_t process = 0;
  const int error = posix_spawn(&process, "/proc/self/exe", &files, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attributes);
  if (error == 0) workers_.push_back({.process = process, .channel = std::move(own)});
  return error == 0;
}

// Nobody comes in any more; who has not begun runs by itself.
void AgentKeeper::Close() {
  if (!listener_.IsOpen()) return;
  RemoveSocket();
  listener_ = Descriptor();
  std::erase_if(clients_, [](const Client& client) {
    if (client.isWaiting) Send(client.socket.Get(), MessageKind::Refused);
    return client.isWaiting;
  });
}

std::string AgentKeeper::StatusText() const {
  const size_t running = CountWorkers(State::Running, true);
  const bool isReady = std::ranges::any_of(workers_, [](const Worker& w) { return w.state == State::Idle; });
  return std::to_string(runs_) + " " + std::to_string(running) + " " + (isReady ? "1" : "0") + " " +
         std::to_string(Patience() / 1000);
}

}  // namespace media_adapter::cli

// The agent's own process: takes clients in, gives each to a worker, passes signals on, and sees to it that a new
// worker is always ready or on its way.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <list>
#include <string>
#include <vector>

#include "cli/agent/agent.h"
#include "cli/posix/agent_channel.h"

namespace media_adapter::cli {

inline constexpr const char* kWorkerArgument = "__agent-worker";  // the interface is the next argument
inline constexpr int kWorkerChannel = 3;                          // the worker's end of its connection

class AgentKeeper {
 public:
  // signals: a descriptor that tells of those that ask the agent to end.
  AgentKeeper(Descriptor listener, Descriptor signals, const AgentOptions& options);
  // Until it has been idle for long enough, or was told to end.
  void Run();

 private:
  using Clock = std::chrono::steady_clock;

  enum class State : uint8_t { Searching, Idle, Running, Leaving };
  struct Worker {
    pid_t process;
    Descriptor channel;
    State state = State::Searching;
    bool isUsed = false;  // has run a command
  };
  struct Client {
    Descriptor socket;
    std::vector<Descriptor> files;  // of a command that waits
    bool isWaiting = false;
    bool isTold = false;  // what it waits for
    pid_t worker = 0;     // that runs its command
  };

  void WaitForNews();
  void TakeSignal();
  void TakeClient();
  bool TakeRequest(Client& client);
  bool TakeReport(Worker& worker);
  void Finish(const Worker& worker, MessageKind kind, const std::string& text);
  void StartRuns();
  void KeepWorkers();
  bool StartWorker();
  Worker* FreeWorker();
  void Stop() { isStopping_ = true; }
  void Close();
  std::string StatusText() const;
  bool IsIdle() const;
  int Patience() const;
  size_t CountWorkers(State state, bool isUsed) const;

  const std::string identity_ = Identity();
  const int idleSeconds_;
  std::string interface_;
  Descriptor listener_, signals_;
  std::list<Worker> workers_;
  std::list<Client> clients_;
  bool isStopping_ = false;
  unsigned runs_ = 0;
  Clock::time_point lastUse_ = Clock::now();
};

}  // namespace media_adapter::cli

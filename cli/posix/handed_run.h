// A run of the tool on its way from the process that was started to the worker that carries it out: the arguments, and
// all around them that a command can tell apart.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/posix/agent_channel.h"

namespace media_adapter::cli {

// The descriptors to send; their owner is this object. None when this process is one to run by itself: it lacks a
// stream, or is a background job that a question should stop.
class HandedRun {
 public:
  static std::optional<HandedRun> Make(const std::vector<std::string>& arguments);
  std::vector<int> Files() const;

 private:
  std::vector<Descriptor> own_;
};

// While it lives this process stands in for the one that the descriptors came from: its streams, current folder,
// environment, file mode mask and terminal. Afterwards nothing of them is left.
class Surroundings {
 public:
  explicit Surroundings(std::vector<Descriptor> files);
  ~Surroundings();
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

  // False when what came is no run.
  bool IsWhole() const { return isWhole_; }
  const std::vector<std::string>& Arguments() const { return arguments_; }

 private:
  bool Read(int file);

  const std::vector<Descriptor> files_;
  bool isWhole_ = false;
  bool isPipeSignalIgnored_ = false;
  mode_t mask_ = 0;
  std::vector<std::string> arguments_;
  std::vector<std::string> variables_;
  std::vector<char*> environment_;
};

}  // namespace media_adapter::cli

#include "bench/loopback_device.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

extern char** environ;  // NOLINT: POSIX declares it in no header

namespace media_adapter::bench {
namespace {

void Run(const std::string& command) {
  // The command is the benchmark's own, made of fixed words and a temporary folder's name.
  if (std::system(command.c_str()) != 0) throw std::runtime_error("cannot run: " + command);  // NOLINT(cert-env33-c)
}

}  // namespace

LoopbackDevice::LoopbackDevice(const std::filesystem::path& simulator) {
  std::string name = (std::filesystem::temp_directory_path() / "media-adapter-bench-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
  folder_ = name;
  MakeVolume();
  processes_.push_back(StartSimulator(simulator.string(), kDeviceAddress, "bench", "0"));
  processes_.push_back(StartSimulator(simulator.string(), kSlowDeviceAddress, "slow", "0.25"));
}

LoopbackDevice::~LoopbackDevice() {
  for (const pid_t process : processes_) {
    kill(process, SIGTERM);
    waitpid(process, nullptr, 0);
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::filesystem::path LoopbackDevice::MakeFile(const char* name, uint32_t size) const {
  std::mt19937 random(size);
  std::string content(size, '\0');
  for (char& byte : content) byte = static_cast<char>(random());
  const auto path = folder_ / name;
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

void LoopbackDevice::MakeVolume() const {
  for (const char* name : {"bench", "slow"}) {
    Run("PATH=$PATH:/usr/sbin mkfs.fat -C -F 16 -s 8 -f 1 " + (folder_ / name).string() + " 65536 >/dev/null");
  }
}

pid_t LoopbackDevice::StartSimulator(std::string simulator, const char* address, const char* name,
                                     const char* delay) const {
  std::array<int, 2> ready{};
  if (pipe2(ready.data(), O_CLOEXEC) != 0) throw std::runtime_error("cannot make a pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
  std::string device = std::string(address) + "," + name + "," + (folder_ / name).string();
  std::string words[] = {simulator, "--device", device, "--delay", delay};
  std::array<char*, std::size(words) + 1> arguments{};
  std::ranges::transform(words, arguments.begin(), [](std::string& word) { return word.data(); });
  pid_t process = -1;
  const int failed = posix_spawn(&process, simulator.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ready[1]);
  char first = 0;
  const bool isReady = failed == 0 && read(ready[0], &first, 1) == 1;  // it says "ready", or ends
  close(ready[0]);
  if (!isReady) throw std::runtime_error("the simulator does not start: " + simulator);
  return process;
}

}  // namespace media_adapter::bench

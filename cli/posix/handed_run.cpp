#include "cli/posix/handed_run.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>

#include "cli/posix/lent_terminal.h"

namespace media_adapter::cli {
namespace {

// The descriptors in their order; the last is left out where there is no terminal.
enum File : size_t { kText, kInput, kOutput, kError, kFolder, kTerminal };

std::array<int, 3> Streams() { return {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}; }

bool IsBackgroundJob() {
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  return foreground >= 0 && foreground != getpgrp();
}

bool IsPipeSignalIgnored() {
  struct sigaction action = {};
  sigaction(SIGPIPE, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

mode_t FileModeMask() {
  const mode_t mask = umask(077);
  umask(mask);
  return mask;
}

bool WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

std::string ReadAll(int file) {
  struct stat status {};
  if (fstat(file, &status) != 0 || status.st_size < 0) return {};
  std::string text(static_cast<size_t>(status.st_size), '\0');
  for (size_t done = 0; done < text.size();) {
    const ssize_t count = pread(file, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (count <= 0) return {};
    done += static_cast<size_t>(count);
  }
  return text;
}

// What a command may have left in the streams would otherwise come to light in the next one.
void CleanStreams() {
  for (std::FILE* const stream : {stdin, stdout, stderr}) {
    std::fflush(stream);
    __fpurge(stream);
    clearerr(stream);
  }
  std::cin.clear();
  std::cout.clear();
  std::cerr.clear();
}

}  // namespace

std::optional<HandedRun> HandedRun::Make(const std::vector<std::string>& arguments) {
  HandedRun run;
  const auto isClosed = [](int stream) { return fcntl(stream, F_GETFD) < 0; };
  if (std::ranges::any_of(Streams(), isClosed) || IsBackgroundJob()) return std::nullopt;
  std::string text = std::to_string(FileModeMask()) + '\0' + (IsPipeSignalIgnored() ? "1" : "0") + '\0' +
                     std::to_string(arguments.size()) + '\0';
  for (const std::string& argument : arguments) text += argument + '\0';
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable)
    text.append(*variable) += '\0';
  run.own_.emplace_back(memfd_create("media-adapter", MFD_CLOEXEC));
  run.own_.emplace_back(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  run.own_.emplace_back(open("/dev/tty", O_RDWR | O_CLOEXEC));
  const bool isWhole = run.own_[0].IsOpen() && run.own_[1].IsOpen() && WriteAll(run.own_[0].Get(), text);
  return isWhole ? std::optional(std::move(run)) : std::nullopt;
}

std::vector<int> HandedRun::Files() const {
  std::vector<int> files = {own_[0].Get(), STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, own_[1].Get()};
  if (own_[2].IsOpen()) files.push_back(own_[2].Get());
  return files;
}

Surroundings::Surroundings(std::vector<Descriptor> files) : files_(std::move(files)) {
  isWhole_ = files_.size() > kFolder && Read(files_[kText].Get()) && fchdir(files_[kFolder].Get()) == 0;
  if (!isWhole_) return;
  CleanStreams();
  for (size_t i = 0; i < Streams().size(); ++i) dup2(files_[kInput + i].Get(), Streams().at(i));
  setvbuf(stdout, nullptr, isatty(STDOUT_FILENO) == 1 ? _IOLBF : _IOFBF, BUFSIZ);
  LendTerminal(files_.size() > kTerminal ? files_[kTerminal].Get() : -1);
  umask(mask_);
  environ = environment_.data();
  tzset();
  std::signal(SIGPIPE, isPipeSignalIgnored_ ? SIG_IGN : SIG_DFL);
}

Surroundings::~Surroundings() {
  CleanStreams();
  const Descriptor none(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int stream : Streams()) dup2(none.Get(), stream);
  [[maybe_unused]] const int result = chdir("/");
  LendTerminal(-1);
  static char* nothing = nullptr;
  environ = &nothing;
}

bool Surroundings::Read(int file) {
  const std::string text = ReadAll(file);
  if (!text.ends_with('\0')) return false;
  std::vector<std::string> words;
  for (size_t at = 0; at < text.size(); at = text.find('\0', at) + 1) words.emplace_back(text.c_str() + at);
  constexpr size_t kNumbers = 3;
  size_t count = 0;
  if (words.size() < kNumbers) return false;
  std::from_chars(words[0].data(), words[0].data() + words[0].size(), mask_);
  isPipeSignalIgnored_ = words[1] == "1";
  std::from_chars(words[2].data(), words[2].data() + words[2].size(), count);
  if (count > words.size() - kNumbers) return false;
  const auto behind = words.begin() + kNumbers + static_cast<std::ptrdiff_t>(count);
  arguments_.assign(words.begin() + kNumbers, behind);
  variables_.assign(behind, words.end());
  for (std::string& variable : variables_) environment_.push_back(variable.data());
  environment_.push_back(nullptr);
  return true;
}

}  // namespace media_adapter::cli

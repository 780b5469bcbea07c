#include "tests/system/platform.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace media_adapter::system_tests {

void* OpenLibrary(const std::string& path) { return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL); }
void* FindSymbol(void* library, const char* name) { return dlsym(library, name); }
void CloseLibrary(void* library) { dlclose(library); }

size_t WritableBytes(const std::string& libraryPath) {
  struct Search {
    const std::string& path;
    size_t bytes = 0;
  } search{libraryPath};
  const auto visit = [](dl_phdr_info* info, size_t, void* argument) {
    auto& wanted = *static_cast<Search*>(argument);
    if (wanted.path != info->dlpi_name) return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
      const auto& segment = info->dlpi_phdr[i];
      if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) != 0) wanted.bytes += segment.p_memsz;
    }
    return 1;
  };
  dl_iterate_phdr(visit, &search);
  return search.bytes;
}

size_t AllocatedBytes() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::string HostPath(const std::string& path) { return path; }

struct Process::Impl {
  pid_t id = -1;
  int output = -1;
  int status = -1;
};

Process::Process(const std::vector<std::string>& command, const std::string& input) : impl_(new Impl) {
  std::vector<char*> arguments;
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  impl_->id = fork();
  if (impl_->id < 0) throw std::runtime_error("fork");
  if (impl_->id == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(in[0]);
  close(out[1]);
  [[maybe_unused]] const ssize_t written = write(in[1], input.data(), input.size());
  close(in[1]);
  impl_->output = out[0];
}

Process::~Process() {
  Kill();
  close(impl_->output);
}

// False once the output has ended, or when nothing came in time.
bool Process::ReadSome(std::chrono::milliseconds timeout) {
  pollfd entry{impl_->output, POLLIN, 0};
  char buffer[4096];
  if (poll(&entry, 1, static_cast<int>(timeout.count())) <= 0) return false;
  const ssize_t size = read(impl_->output, buffer, sizeof buffer);
  if (size > 0) output_.append(buffer, static_cast<size_t>(size));
  return size > 0;
}

bool Process::WaitForLine(const std::string& line, std::chrono::seconds timeout) {
  while (("\n" + output_).find("\n" + line + "\n") == std::string::npos) {
    if (!ReadSome(timeout)) return false;
  }
  return true;
}

void Process::Kill() {
  if (impl_->id > 0) kill(impl_->id, SIGKILL);
  Wait();
}

int Process::Wait() {
  if (impl_->id <= 0) return impl_->status;
  while (ReadSome(std::chrono::minutes(1))) {
  }
  int status = 0;
  waitpid(impl_->id, &status, 0);
  impl_->id = -1;
  impl_->status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return impl_->status;
}

}  // namespace media_adapter::system_tests

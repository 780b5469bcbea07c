// Windows, or rather Wine: the simulator is a program of the machine below.
#include "tests/system/platform.h"

#include <windows.h>

#include <filesystem>
#include <span>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/support/temp_folder.h"

namespace media_adapter::system_tests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPollInterval = 10ms;
constexpr auto kPatience = 1min;  // with what ought to happen at once

std::string Quoted(const std::vector<std::string>& command) {
  std::string line;
  for (const std::string& word : command) line += (line.empty() ? "\"" : " \"") + word + "\"";
  return line;
}

// A file that a child may use as a standard stream.
HANDLE OpenForChild(const std::string& path, DWORD access) {
  SECURITY_ATTRIBUTES inherited{.nLength = sizeof inherited, .lpSecurityDescriptor = nullptr, .bInheritHandle = TRUE};
  return CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, OPEN_ALWAYS, 0, nullptr);
}

// Null for a program of the host, which this system knows nothing more of.
HANDLE Launch(const std::vector<std::string>& command, const std::string& inputPath, const std::string& outputPath) {
  std::string line = Quoted(command);
  STARTUPINFOA start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = OpenForChild(inputPath, GENERIC_READ);
  start.hStdOutput = OpenForChild(outputPath, GENERIC_WRITE);
  start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION made{};
  const bool isStarted =
      CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &made) != 0;
  CloseHandle(start.hStdInput);
  CloseHandle(start.hStdOutput);
  if (!isStarted) throw std::runtime_error("cannot start " + line);
  if (made.hThread != nullptr) CloseHandle(made.hThread);
  return made.hProcess;
}

std::vector<std::string> HostProgram(const char* verb, const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"Z:\\bin\\sh", MEDIA_ADAPTER_HOST_PROGRAM, verb};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

std::string ReadText(const std::string& path) {
  const sim::Bytes bytes = sim::ReadWholeFile(path);
  std::string text(bytes.begin(), bytes.end());
  std::erase(text, '\r');
  return text;
}

}  // namespace

void* OpenLibrary(const std::string& path) { return LoadLibraryA(path.c_str()); }
void* FindSymbol(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}
void CloseLibrary(void* library) { FreeLibrary(static_cast<HMODULE>(library)); }

size_t WritableBytes(const std::string& libraryPath) {
  const auto* const base = reinterpret_cast<const uint8_t*>(GetModuleHandleA(libraryPath.c_str()));
  if (base == nullptr) return 0;
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  size_t bytes = 0;
  for (const auto& section : std::span(IMAGE_FIRST_SECTION(headers), headers->FileHeader.NumberOfSections)) {
    if ((section.Characteristics & IMAGE_SCN_MEM_WRITE) != 0) bytes += section.Misc.VirtualSize;
  }
  return bytes;
}

size_t AllocatedBytes() {
  size_t bytes = 0;
  PROCESS_HEAP_ENTRY entry{};
  while (HeapWalk(GetProcessHeap(), &entry) != 0) {
    if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
  }
  return bytes;
}

std::string HostPath(const std::string& path) {
  if (path.starts_with('/')) return path;
  using Function = char*(CDECL*)(const wchar_t*);
  const auto find = GetProcAddress(GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name");
  if (find == nullptr) throw std::runtime_error("not under Wine");
  return reinterpret_cast<Function>(reinterpret_cast<void*>(find))(std::filesystem::path(path).c_str());
}

struct Process::Impl {
  sim::TempFolder folder;
  HANDLE process = nullptr;
  std::string group;  // of a program of the host
  int status = -1;
};

Process::Process(const std::vector<std::string>& command, const std::string& input) : impl_(new Impl) {
  const bool isOfHost = !command.front().ends_with(".exe");
  const std::string inputPath = impl_->folder / "input";
  sim::WriteWholeFile(inputPath, std::vector<uint8_t>(input.begin(), input.end()));
  impl_->process = Launch(isOfHost ? HostProgram("run", command) : command, inputPath, impl_->folder / "output");
  if (!isOfHost) return;
  const auto deadline = Clock::now() + kPatience;
  while (output_.find('\n') == std::string::npos) {
    if (Clock::now() > deadline) throw std::runtime_error("nothing is heard of " + command.front());
    ReadSome(kPollInterval);
  }
  impl_->group = output_.substr(6, output_.find('\n') - 6);  // behind "group "
}

Process::~Process() { Kill(); }

// True while more may come.
bool Process::ReadSome(std::chrono::milliseconds timeout) {
  const bool isRunning = impl_->process == nullptr || WaitForSingleObject(impl_->process, 0) == WAIT_TIMEOUT;
  if (isRunning) std::this_thread::sleep_for(timeout);
  output_ = ReadText(impl_->folder / "output");
  return isRunning;
}

bool Process::WaitForLine(const std::string& line, std::chrono::seconds timeout) {
  const auto deadline = Clock::now() + timeout;
  while (("\n" + output_).find("\n" + line + "\n") == std::string::npos) {
    if (Clock::now() > deadline || !ReadSome(kPollInterval)) return false;
  }
  return true;
}

void Process::Kill() {
  if (!impl_->group.empty()) {
    const std::string said = impl_->folder / "said";
    Launch(HostProgram("stop", {std::exchange(impl_->group, {})}), impl_->folder / "input", said);
    const auto deadline = Clock::now() + kPatience;
    while (ReadText(said) != "stopped\n" && Clock::now() < deadline) std::this_thread::sleep_for(kPollInterval);
  }
  if (impl_->process == nullptr) return;
  TerminateProcess(impl_->process, 0);
  Wait();
}

int Process::Wait() {
  if (impl_->process == nullptr) return impl_->status;
  const auto deadline = Clock::now() + kPatience;
  while (ReadSome(kPollInterval) && Clock::now() < deadline) {
  }
  DWORD status = 0;
  if (GetExitCodeProcess(impl_->process, &status) != 0 && status != STILL_ACTIVE) {
    impl_->status = static_cast<int>(status);
  }
  CloseHandle(std::exchange(impl_->process, nullptr));
  return impl_->status;
}

}  // namespace media_adapter::system_tests

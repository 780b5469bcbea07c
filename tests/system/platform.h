// What the system tests need of the operating system. Each system has a folder of sources behind it; the tests
// themselves are the same everywhere.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace media_adapter::system_tests {

void* OpenLibrary(const std::string& path);  // null when it cannot be loaded
void* FindSymbol(void* library, const char* name);
void CloseLibrary(void* library);

// Bytes of the loaded library's writable segments, and bytes that the process has allocated.
size_t WritableBytes(const std::string& libraryPath);
size_t AllocatedBytes();

// A path as the system spells it on which the simulator runs.
std::string HostPath(const std::string& path);

// A program beside the test. It dies with this object, or with the test.
class Process {
 public:
  // command: path and arguments. It reads `input` and nothing else, and its output is kept.
  explicit Process(const std::vector<std::string>& command, const std::string& input = {});
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Waits until the output holds `line`. False when it ends without, or after `timeout`.
  bool WaitForLine(const std::string& line, std::chrono::seconds timeout = std::chrono::seconds(20));
  // Ends it at once, without a chance to tidy up.
  void Kill();
  // Waits for its end and the end of its output. The exit status, or -1 when it did not end by itself.
  int Wait();
  const std::string& Output() const { return output_; }

 private:
  bool ReadSome(std::chrono::milliseconds timeout);

  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::string output_;
};

}  // namespace media_adapter::system_tests

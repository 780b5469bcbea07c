// What differs between systems about the file below a LocalFile, which does the buffering: bytes at offsets,
// unbuffered.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>

namespace media_adapter::platform {

enum class FileUse : uint8_t {
  Read,
  Replace,  // creates the file, or truncates it
};

using FileHandle = std::intptr_t;
inline constexpr FileHandle kNoFile = -1;

// A regular file; kNoFile when there is none, or something else stands under the name.
FileHandle OpenRegularFile(const std::string& path, FileUse use);
// A regular file that is there, for reading and writing by one alone: device_or_resource_busy while another has it so.
// kNoFile with `error`, or without one when something else stands under the name.
FileHandle OpenExclusively(const std::string& path, std::error_code& error);
std::optional<uint64_t> FileSize(FileHandle file);
// Bytes read or written, perhaps fewer than there are; 0 behind the end; -1 for a failure.
int64_t ReadAt(FileHandle file, std::span<uint8_t> buffer, uint64_t offset);
int64_t WriteAt(FileHandle file, std::span<const uint8_t> bytes, uint64_t offset);
// False when the system says that bytes were lost.
bool CloseFile(FileHandle file);

// While one exists, the library's unloading may end the thread: it may be waiting for a file system that has gone away.
// Not for destructors, in which a thread must not be ended.
class Interruptible {
 public:
  Interruptible();
  ~Interruptible();
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  int before_ = 0;  // the backend's
};

}  // namespace media_adapter::platform

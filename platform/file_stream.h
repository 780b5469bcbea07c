// What differs between systems about the stream below a LocalFile; the rest of it is the same everywhere.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

namespace media_adapter::platform {

enum class FileUse {
  Read,
  Replace,  // creates the file, or truncates it
};

// A binary stream over a regular file; null when there is none, or something else stands under the name.
std::FILE* OpenRegularFile(const std::string& path, FileUse use);

std::optional<uint64_t> StreamSize(std::FILE* stream);
bool SeekStream(std::FILE* stream, uint64_t offset);

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

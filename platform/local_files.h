// The host's own files: one file read or written as a binary stream, and one directory look-up. Only regular files are
// opened, so that a device, a pipe or a folder under a file's name never blocks or surprises a request.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/clock.h"

namespace media_adapter::platform {

enum class FileUse;

class LocalFile {
 public:
  LocalFile() = default;
  ~LocalFile();
  LocalFile(const LocalFile&) = delete;
  LocalFile& operator=(const LocalFile&) = delete;

  bool OpenForReading(const std::string& path);
  // Creates the file, or truncates a regular file that is there.
  bool CreateForWriting(const std::string& path);

  std::optional<uint64_t> Size();
  bool Seek(uint64_t offset);
  // Reads until the buffer is full or the file ends. Bytes read, or -1.
  int64_t Read(std::span<uint8_t> buffer);
  bool Write(std::span<const uint8_t> bytes);
  // False when bytes that were written could not be kept. Closing a closed file succeeds.
  bool Close();

 private:
  bool Open(const std::string& path, FileUse use);

  std::FILE* stream_ = nullptr;
  std::unique_ptr<char[]> buffer_;  // of the stream
  uint64_t position_ = 0;           // the stream's; asking it would cost a call to the system
};

// A file as its directory shows it.
struct LocalFileInfo {
  std::string name;        // as the file system spells it, without its folder
  uint8_t attributes = 0;  // DOS attributes: 0x01 read-only, 0x02 hidden, 0x04 system, 0x10 directory, 0x20 archive
  LocalTime lastWrite;
};

std::optional<LocalFileInfo> FindLocalFile(const std::string& path);

// True when `c` ends a folder name inside a path of this system.
bool IsHostSeparator(char c);
// The separator that joins a folder and a name.
char HostSeparator();

}  // namespace media_adapter::platform

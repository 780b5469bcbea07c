// The host's own files: one file read or written through a buffer, and one directory look-up. Only regular files are
// opened, so that a device, a pipe or a folder under a file's name never blocks or surprises a request.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/clock.h"
#include "platform/raw_file.h"

namespace media_adapter::platform {

class LocalFile {
 public:
  LocalFile() = default;
  // Closes the file. Bytes that were written may be lost: Close keeps them.
  ~LocalFile();
  LocalFile(const LocalFile&) = delete;
  LocalFile& operator=(const LocalFile&) = delete;

  bool OpenForReading(const std::string& path);
  // Creates the file, or truncates a regular file that is there.
  bool CreateForWriting(const std::string& path);

  std::optional<uint64_t> Size();
  // The next Read or Write is at `offset`, which may lie behind the file's end.
  bool Seek(uint64_t offset);
  // Reads until the buffer is full or the file ends. Bytes read, or -1.
  int64_t Read(std::span<uint8_t> buffer);
  // False when these bytes, or earlier ones that waited in the buffer, could not be written.
  bool Write(std::span<const uint8_t> bytes);
  // False when bytes that were written could not be kept. Closing a closed file succeeds.
  bool Close();

 private:
  // Every call that may wait for the file system.
  template <class Call>
  auto AskSystem(Call call);
  bool Open(const std::string& path, FileUse use);
  bool Fill();
  bool Flush();

  FileHandle file_ = kNoFile;
  uint64_t position_ = 0;
  std::unique_ptr<uint8_t[]> buffer_;  // read ahead, or not yet written
  uint64_t bufferStart_ = 0;           // its place in the file
  size_t buffered_ = 0;                // bytes in it
  bool isWritten_ = false;             // the file is written, not read
  bool isGood_ = true;                 // nothing that was written is lost
  bool isInCall_ = false;
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
// True when the last character of a local folder is a separator: this system's, or "\" as on the device.
bool EndsInSeparator(const std::string& folder);

}  // namespace media_adapter::platform

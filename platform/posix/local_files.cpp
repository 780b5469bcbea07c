#include "platform/local_files.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_stream.h"
#include "platform/posix/local_time.h"

namespace media_adapter::platform {
namespace {

constexpr uint8_t kReadOnly = 0x01;
constexpr uint8_t kHidden = 0x02;
constexpr uint8_t kDirectory = 0x10;
constexpr uint8_t kArchive = 0x20;

std::string LastComponent(const std::string& path) {
  const size_t separator = path.rfind('/');
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

}  // namespace

Interruptible::Interruptible() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before_); }
Interruptible::~Interruptible() { pthread_setcancelstate(before_, nullptr); }

// Opening without blocking keeps a pipe that nobody else has open from holding the request.
std::FILE* OpenRegularFile(const std::string& path, FileUse use) {
  const bool isRead = use == FileUse::Read;
  const int flags = (isRead ? O_RDONLY : O_WRONLY | O_CREAT) | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  const int handle = open(path.c_str(), flags, 0666);
  if (handle < 0) return nullptr;
  struct stat status {};
  std::FILE* stream = nullptr;
  if (fstat(handle, &status) == 0 && S_ISREG(status.st_mode) && (isRead || ftruncate(handle, 0) == 0)) {
    stream = fdopen(handle, isRead ? "rb" : "wb");
  }
  if (stream == nullptr) close(handle);
  return stream;
}

std::optional<uint64_t> StreamSize(std::FILE* stream) {
  struct stat status {};
  if (fstat(fileno(stream), &status) != 0) return std::nullopt;
  return static_cast<uint64_t>(status.st_size);
}

bool SeekStream(std::FILE* stream, uint64_t offset) {
  return fseeko(stream, static_cast<off_t>(offset), SEEK_SET) == 0;
}

std::optional<LocalFileInfo> FindLocalFile(const std::string& path) {
  struct stat status {};
  const Interruptible interruptible;
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  LocalFileInfo info;
  info.name = LastComponent(path);
  info.lastWrite = ToLocalTime(status.st_mtime);
  if ((status.st_mode & S_IWUSR) == 0) info.attributes |= kReadOnly;
  if (info.name.starts_with('.')) info.attributes |= kHidden;
  if (S_ISDIR(status.st_mode)) info.attributes |= kDirectory;
  if (S_ISREG(status.st_mode)) info.attributes |= kArchive;
  return info;
}

bool IsHostSeparator(char c) { return c == '/'; }

char HostSeparator() { return '/'; }

}  // namespace media_adapter::platform

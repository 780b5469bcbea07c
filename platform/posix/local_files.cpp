#include "platform/local_files.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/local_time.h"

namespace media_adapter::platform {
namespace {

constexpr size_t kBufferSize = 64 * 1024;  // of a stream; a received file reaches the disk in writes of this size

constexpr uint8_t kReadOnly = 0x01;
constexpr uint8_t kHidden = 0x02;
constexpr uint8_t kDirectory = 0x10;
constexpr uint8_t kArchive = 0x20;

// Lets the library's unloading end the thread while it waits for a file system that does not answer.
class Interruptible {
 public:
  Interruptible() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before_); }
  ~Interruptible() { pthread_setcancelstate(before_, nullptr); }
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

// Opening without blocking keeps a pipe that nobody else has open from holding the request.
std::FILE* OpenRegular(const std::string& path, int flags, const char* mode) {
  const int handle = open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0666);
  if (handle < 0) return nullptr;
  struct stat status {};
  std::FILE* stream = nullptr;
  if (fstat(handle, &status) == 0 && S_ISREG(status.st_mode) &&
      ((flags & O_ACCMODE) == O_RDONLY || ftruncate(handle, 0) == 0)) {
    stream = fdopen(handle, mode);
  }
  if (stream == nullptr) close(handle);
  return stream;
}

std::string LastComponent(const std::string& path) {
  const size_t separator = path.rfind('/');
  return separator == std::string::npos ? path : path.substr(separator + 1);
}

}  // namespace

// Not interruptible: a thread must not be ended inside a destructor.
LocalFile::~LocalFile() {
  if (stream_ != nullptr) std::fclose(stream_);
}

bool LocalFile::Adopt(std::FILE* stream) {
  stream_ = stream;
  position_ = 0;
  if (stream == nullptr) return false;
  buffer_ = std::make_unique<char[]>(kBufferSize);
  setvbuf(stream, buffer_.get(), _IOFBF, kBufferSize);
  return true;
}

bool LocalFile::OpenForReading(const std::string& path) {
  Close();
  const Interruptible interruptible;
  return Adopt(OpenRegular(path, O_RDONLY, "rb"));
}

bool LocalFile::CreateForWriting(const std::string& path) {
  Close();
  const Interruptible interruptible;
  return Adopt(OpenRegular(path, O_WRONLY | O_CREAT, "wb"));
}

std::optional<uint64_t> LocalFile::Size() {
  struct stat status {};
  if (stream_ == nullptr || fstat(fileno(stream_), &status) != 0) return std::nullopt;
  return static_cast<uint64_t>(status.st_size);
}

bool LocalFile::Seek(uint64_t offset) {
  if (stream_ == nullptr) return false;
  if (position_ == offset) return true;  // a seek would empty the buffer
  const Interruptible interruptible;
  if (fseeko(stream_, static_cast<off_t>(offset), SEEK_SET) != 0) return false;
  position_ = offset;
  return true;
}

int64_t LocalFile::Read(std::span<uint8_t> buffer) {
  if (stream_ == nullptr) return -1;
  const Interruptible interruptible;
  const size_t count = std::fread(buffer.data(), 1, buffer.size(), stream_);
  position_ += count;
  if (count < buffer.size() && std::ferror(stream_) != 0) return -1;
  return static_cast<int64_t>(count);
}

bool LocalFile::Write(std::span<const uint8_t> bytes) {
  if (stream_ == nullptr) return false;
  const Interruptible interruptible;
  const size_t count = std::fwrite(bytes.data(), 1, bytes.size(), stream_);
  position_ += count;
  return count == bytes.size();
}

bool LocalFile::Close() {
  if (stream_ == nullptr) return true;
  std::FILE* const stream = stream_;
  stream_ = nullptr;
  const bool wasGood = std::ferror(stream) == 0;
  const Interruptible interruptible;
  return std::fclose(stream) == 0 && wasGood;
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

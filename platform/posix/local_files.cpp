#include "platform/local_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "platform/posix/local_time.h"
#include "platform/posix/stored_name.h"

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

static_assert(sizeof(off_t) == sizeof(uint64_t), "files of up to 4 GiB - 1");

// Calls again when a signal came in between.
template <class Call>
int64_t Repeated(Call call) {
  for (;;) {
    const int64_t result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

struct FolderEnd {
  void operator()(DIR* folder) const { closedir(folder); }
};

bool IsSameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
char ToLower(char c) { return IsLetter(c) ? static_cast<char>(c | 0x20) : c; }
char InOtherCase(char c) { return IsLetter(c) ? static_cast<char>(c ^ 0x20) : c; }

// False when the folder surely has an entry of exactly that name: where another spelling does not lead to the file,
// letter case matters. One more look at most, so that large folders need not be read.
bool MayBeSpelledOtherwise(const std::string& path, const struct stat& file) {
  std::string other = path;
  const auto name = std::span(other).last(LastComponent(path).size());
  std::ranges::transform(name, name.begin(), InOtherCase);
  if (other == path) return std::ranges::any_of(name, [](char c) { return static_cast<uint8_t>(c) > 0x7F; });
  struct stat status {};
  return stat(other.c_str(), &status) == 0 && IsSameFile(status, file);
}

}  // namespace

Interruptible::Interruptible() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &before_); }
Interruptible::~Interruptible() { pthread_setcancelstate(before_, nullptr); }

// Opening without blocking keeps a pipe that nobody else has open from holding the request.
FileHandle OpenRegularFile(const std::string& path, FileUse use) {
  const bool isRead = use == FileUse::Read;
  const int flags = (isRead ? O_RDONLY : O_WRONLY | O_CREAT) | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  const int handle = open(path.c_str(), flags, 0666);
  if (handle < 0) return kNoFile;
  struct stat status {};
  if (fstat(handle, &status) == 0 && S_ISREG(status.st_mode) && (isRead || ftruncate(handle, 0) == 0)) return handle;
  close(handle);
  return kNoFile;
}

std::optional<uint64_t> FileSize(FileHandle file) {
  struct stat status {};
  if (fstat(static_cast<int>(file), &status) != 0) return std::nullopt;
  return static_cast<uint64_t>(status.st_size);
}

int64_t ReadAt(FileHandle file, std::span<uint8_t> buffer, uint64_t offset) {
  return Repeated(
      [&] { return pread(static_cast<int>(file), buffer.data(), buffer.size(), static_cast<off_t>(offset)); });
}

int64_t WriteAt(FileHandle file, std::span<const uint8_t> bytes, uint64_t offset) {
  return Repeated(
      [&] { return pwrite(static_cast<int>(file), bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
}

// An interrupted close has closed: trying again might close another's file.
bool CloseFile(FileHandle file) { return close(static_cast<int>(file)) == 0 || errno == EINTR; }

std::string StoredName(const std::string& path, const struct stat& file) {
  std::string name = LastComponent(path);
  const std::string folder = path.substr(0, path.size() - name.size());
  const std::unique_ptr<DIR, FolderEnd> entries(opendir(folder.empty() ? "." : folder.c_str()));
  std::string stored = name;
  bool isAlike = false;
  while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
    const std::string_view candidate = entry->d_name;
    if (candidate == name) return name;
    const bool alike = std::ranges::equal(candidate, name, {}, ToLower, ToLower);
    // A link has a number of its own.
    if (isAlike || (!alike && entry->d_ino != file.st_ino)) continue;
    struct stat status {};
    if (fstatat(dirfd(entries.get()), entry->d_name, &status, 0) != 0 || !IsSameFile(status, file)) continue;
    stored = candidate;
    isAlike = alike;
  }
  return stored;
}

std::optional<LocalFileInfo> FindLocalFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  LocalFileInfo info;
  info.name = MayBeSpelledOtherwise(path, status) ? StoredName(path, status) : LastComponent(path);
  info.lastWrite = ToLocalTime(status.st_mtime);
  if ((status.st_mode & S_IWUSR) == 0) info.attributes |= kReadOnly;
  if (info.name.starts_with('.')) info.attributes |= kHidden;
  if (S_ISDIR(status.st_mode)) info.attributes |= kDirectory;
  if (S_ISREG(status.st_mode)) info.attributes |= kArchive;
  return info;
}

bool IsHostSeparator(char c) { return c == '/'; }

char HostSeparator() { return '/'; }

bool EndsInSeparator(const std::string& folder) { return folder.ends_with('/') || folder.ends_with('\\'); }

}  // namespace media_adapter::platform

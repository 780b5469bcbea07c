#include "platform/local_files.h"

#include <fcntl.h>
#include <io.h>

#include "platform/file_stream.h"
#include "platform/windows/local_time.h"

namespace media_adapter::platform {
namespace {

constexpr DWORD kDosAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                 FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE;

// The stream owns the handle; null, and the handle is still the caller's, when there is none to be had.
std::FILE* ToStream(HANDLE handle, bool isRead) {
  const int descriptor = _open_osfhandle(reinterpret_cast<intptr_t>(handle), isRead ? _O_RDONLY : 0);
  return descriptor < 0 ? nullptr : _fdopen(descriptor, isRead ? "rb" : "wb");
}

LocalTime InLocalTime(const FILETIME& time) {
  FILETIME local{};
  SYSTEMTIME fields{};
  FileTimeToLocalFileTime(&time, &local);
  FileTimeToSystemTime(&local, &fields);
  return ToLocalTime(fields);
}

}  // namespace

// The force of this system needs no leave.
Interruptible::Interruptible() = default;
Interruptible::~Interruptible() = default;

std::FILE* OpenRegularFile(const std::string& path, FileUse use) {
  const bool isRead = use == FileUse::Read;
  // An existing file is cut, not made anew: it keeps its attributes, and may be a hidden one.
  const HANDLE handle =
      CreateFileA(path.c_str(), isRead ? GENERIC_READ : GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  isRead ? OPEN_EXISTING : OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return nullptr;
  std::FILE* stream = nullptr;
  if (GetFileType(handle) == FILE_TYPE_DISK && (isRead || SetEndOfFile(handle))) stream = ToStream(handle, isRead);
  if (stream == nullptr) CloseHandle(handle);
  return stream;
}

std::optional<uint64_t> StreamSize(std::FILE* stream) {
  const int64_t size = _filelengthi64(_fileno(stream));
  if (size < 0) return std::nullopt;
  return static_cast<uint64_t>(size);
}

bool SeekStream(std::FILE* stream, uint64_t offset) {
  return _fseeki64(stream, static_cast<int64_t>(offset), SEEK_SET) == 0;
}

std::optional<LocalFileInfo> FindLocalFile(const std::string& path) {
  if (path.find_first_of("*?") != std::string::npos) return std::nullopt;  // the search would take it for a pattern
  WIN32_FIND_DATAA found{};
  const HANDLE search = FindFirstFileA(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return std::nullopt;
  FindClose(search);
  return LocalFileInfo{.name = found.cFileName,
                       .attributes = static_cast<uint8_t>(found.dwFileAttributes & kDosAttributes),
                       .lastWrite = InLocalTime(found.ftLastWriteTime)};
}

bool IsHostSeparator(char c) { return c == '\\' || c == '/' || c == ':'; }

char HostSeparator() { return '\\'; }

}  // namespace media_adapter::platform

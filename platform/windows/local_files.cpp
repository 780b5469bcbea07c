#include "platform/local_files.h"

#include "platform/windows/code_page.h"
#include "platform/windows/local_time.h"
#include "platform/windows/short_name.h"

namespace media_adapter::platform {
namespace {

constexpr DWORD kDosAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                 FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_ARCHIVE;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE ToHandle(FileHandle file) { return reinterpret_cast<HANDLE>(file); }

// Where a read or a write begins. The file is opened for calls that wait for their end all the same.
OVERLAPPED PlaceAt(uint64_t offset) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

LocalTime InLocalTime(const FILETIME& time) {
  FILETIME local{};
  SYSTEMTIME fields{};
  FileTimeToLocalFileTime(&time, &local);
  FileTimeToSystemTime(&local, &fields);
  return ToLocalTime(fields);
}

// The search would take the name for a pattern. What stands before it may hold a "?", as \\?\ does.
bool HoldsPattern(std::wstring_view path) {
  const size_t separator = path.find_last_of(L"\\/:");
  return path.find_first_of(L"*?", separator == path.npos ? 0 : separator) != path.npos;
}

}  // namespace

// The force of this system needs no leave.
Interruptible::Interruptible() = default;
Interruptible::~Interruptible() = default;

FileHandle OpenRegularFile(const std::string& path, FileUse use) {
  const bool isRead = use == FileUse::Read;
  const auto name = Widen(path);
  if (!name || (!isRead && IsShortName(*name))) return kNoFile;
  // An existing file is cut, not made anew: it keeps its attributes, and may be a hidden one.
  // Others may rename or delete it meanwhile, as they may elsewhere.
  const HANDLE handle = CreateFileW(name->c_str(), isRead ? GENERIC_READ : GENERIC_WRITE, kShareAll, nullptr,
                                    isRead ? OPEN_EXISTING : OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return kNoFile;
  if (GetFileType(handle) == FILE_TYPE_DISK && (isRead || SetEndOfFile(handle))) {
    return reinterpret_cast<FileHandle>(handle);
  }
  CloseHandle(handle);
  return kNoFile;
}

std::optional<uint64_t> FileSize(FileHandle file) {
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(ToHandle(file), &size)) return std::nullopt;
  return static_cast<uint64_t>(size.QuadPart);
}

int64_t ReadAt(FileHandle file, std::span<uint8_t> buffer, uint64_t offset) {
  OVERLAPPED place = PlaceAt(offset);
  DWORD count = 0;
  if (ReadFile(ToHandle(file), buffer.data(), static_cast<DWORD>(buffer.size()), &count, &place)) return count;
  return GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
}

int64_t WriteAt(FileHandle file, std::span<const uint8_t> bytes, uint64_t offset) {
  OVERLAPPED place = PlaceAt(offset);
  DWORD count = 0;
  if (WriteFile(ToHandle(file), bytes.data(), static_cast<DWORD>(bytes.size()), &count, &place)) return count;
  return -1;
}

bool CloseFile(FileHandle file) { return CloseHandle(ToHandle(file)); }

std::optional<LocalFileInfo> FindLocalFile(const std::string& path) {
  const auto wide = Widen(path);
  if (!wide || HoldsPattern(*wide)) return std::nullopt;
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(wide->c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return std::nullopt;
  FindClose(search);
  const auto name = Narrow(found.cFileName);
  if (!name) return std::nullopt;
  return LocalFileInfo{.name = *name,
                       .attributes = static_cast<uint8_t>(found.dwFileAttributes & kDosAttributes),
                       .lastWrite = InLocalTime(found.ftLastWriteTime)};
}

bool IsHostSeparator(char c) { return c == '\\' || c == '/' || c == ':'; }

char HostSeparator() { return '\\'; }

// The second byte of a character may have the separator's value.
bool EndsInSeparator(const std::string& folder) {
  const auto wide = Widen(folder);
  return wide && wide->ends_with(L'\\');
}

}  // namespace media_adapter::platform

#include "platform/raw_file.h"
#include "platform/windows/code_page.h"
#include "platform/windows/system.h"

namespace media_adapter::platform {

FileHandle OpenExclusively(const std::string& path, std::error_code& error) {
  error.clear();
  const auto name = Widen(path);
  // Others may read it, as they may elsewhere.
  const HANDLE handle = name ? CreateFileW(name->c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)
                             : INVALID_HANDLE_VALUE;
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD code = name ? GetLastError() : ERROR_INVALID_NAME;
    error = code == ERROR_SHARING_VIOLATION ? make_error_code(std::errc::device_or_resource_busy)
                                            : std::error_code(static_cast<int>(code), std::system_category());
    return kNoFile;
  }
  if (GetFileType(handle) == FILE_TYPE_DISK) return reinterpret_cast<FileHandle>(handle);
  CloseHandle(handle);
  return kNoFile;
}

}  // namespace media_adapter::platform

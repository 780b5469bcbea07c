// The short names (8.3) that a file system keeps beside long ones: a second name of the same file, which nobody sees.
#pragma once

#include <string>
#include <string_view>

#include "platform/windows/system.h"

namespace media_adapter::platform {

// True when the last name of `path` is that of a file only in this way: who writes there replaces a file whose own name
// is another.
inline bool IsShortName(const std::wstring& path) {
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileW(path.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  FindClose(search);
  const auto name = std::wstring_view(path).substr(path.find_last_of(L"\\/:") + 1);
  return CompareStringOrdinal(name.data(), static_cast<int>(name.size()), found.cFileName, -1, TRUE) != CSTR_EQUAL;
}

}  // namespace media_adapter::platform

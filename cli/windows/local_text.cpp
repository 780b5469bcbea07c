#include "cli/local/local_text.h"

#include <windows.h>

namespace media_adapter::cli {

// In the ANSI code page. A character that is not in it becomes "?", which no local name has.
std::string LocalText(const std::filesystem::path& path) {
  const std::wstring& wide = path.native();
  const int size = static_cast<int>(wide.size());
  std::string text(static_cast<size_t>(WideCharToMultiByte(CP_ACP, 0, wide.data(), size, nullptr, 0, "?", nullptr)), 0);
  WideCharToMultiByte(CP_ACP, 0, wide.data(), size, text.data(), static_cast<int>(text.size()), "?", nullptr);
  return text;
}

}  // namespace media_adapter::cli

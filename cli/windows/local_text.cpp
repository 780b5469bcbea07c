#include "cli/local/local_text.h"

#include "platform/windows/code_page.h"
#include "platform/windows/short_name.h"

namespace media_adapter::cli {

std::string LocalText(const std::filesystem::path& path) {
  if (auto text = ExactText(path)) return *text;
  std::string text;
  for (const wchar_t c : path.native()) text += platform::Narrow({&c, 1}).value_or("?");
  return text;
}

std::optional<std::string> ExactText(const std::filesystem::path& path) { return platform::Narrow(path.native()); }

std::string NoTextProblem() { return "has a character that code page " + std::to_string(GetACP()) + " does not have"; }

std::filesystem::path LocalPath(std::string_view text) { return platform::Widen(text).value_or(L"?"); }

bool IsShortName(const std::filesystem::path& path) { return platform::IsShortName(path.native()); }

}  // namespace media_adapter::cli

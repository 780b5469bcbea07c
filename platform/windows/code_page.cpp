#include "platform/windows/code_page.h"

#include "platform/windows/system.h"

namespace media_adapter::platform {
namespace {

UINT CodePage() { return AreFileApisANSI() ? CP_ACP : CP_OEMCP; }

}  // namespace

std::optional<std::wstring> Widen(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(CodePage(), MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  if (length == 0 && size != 0) return std::nullopt;
  std::wstring wide(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CodePage(), 0, text.data(), size, wide.data(), length);
  return wide;
}

// Whether something was lost shows on the way back, which every code page has: some have no say in what they replace.
std::optional<std::string> Narrow(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CodePage(), 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CodePage(), 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
  return Widen(narrow) == text ? std::optional(narrow) : std::nullopt;
}

}  // namespace media_adapter::platform

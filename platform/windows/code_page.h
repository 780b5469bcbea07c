// Texts between the process's code page, in which the library and the programs around it take and give them, and the
// system's own characters. Nothing is replaced by what looks alike: a text that would lose a character has no other
// form.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace media_adapter::platform {

// From the code page of CreateFileA and its like.
std::optional<std::wstring> Widen(std::string_view text);
std::optional<std::string> Narrow(std::wstring_view text);

}  // namespace media_adapter::platform

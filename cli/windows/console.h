// Text of a console, which knows all characters, in and out of the process's code page. The console's own code pages,
// which outlive the process, are neither used nor changed.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

namespace media_adapter::cli {

bool IsConsole(HANDLE stream);

// To a console as characters, to anything else byte for byte.
void WriteText(HANDLE stream, std::string_view text);

// A line typed at the console `input`, without its end; none at the end of input. Says `prompt`, and asks again when
// the code page lacks a character of what was typed.
std::optional<std::string> AskLine(HANDLE input, HANDLE output, std::string_view prompt, bool isShown = true);

}  // namespace media_adapter::cli

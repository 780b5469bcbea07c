#include "cli/windows/console.h"

#include <algorithm>
#include <array>

#include "cli/console/interrupts.h"
#include "cli/local/local_text.h"
#include "platform/windows/code_page.h"

namespace media_adapter::cli {
namespace {

constexpr wchar_t kEndOfInput = 0x1A;  // Ctrl-Z

std::optional<std::wstring> ReadLine(HANDLE input) {
  std::wstring line;
  std::array<wchar_t, 512> part{};
  SetLastError(ERROR_SUCCESS);
  for (DWORD count = 0; ReadConsoleW(input, part.data(), part.size(), &count, nullptr) != 0 && count > 0;) {
    line.append(part.data(), count);
    if (line.starts_with(kEndOfInput)) break;
    if (!line.ends_with(L'\n')) continue;
    line.erase(line.find_last_not_of(L"\r\n") + 1);
    return line;
  }
  // An interrupt breaks the reading off before its own thread has dealt with it, which as a rule ends the process.
  if (GetLastError() == ERROR_OPERATION_ABORTED) {
    for (int i = 0; i < 100 && !IsInterrupted(); ++i) Sleep(10);
  }
  return std::nullopt;
}

}  // namespace

bool IsConsole(HANDLE stream) {
  DWORD mode = 0;
  return GetConsoleMode(stream, &mode) != 0;
}

void WriteText(HANDLE stream, std::string_view text) {
  DWORD written = 0;
  if (!IsConsole(stream)) {
    WriteFile(stream, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  constexpr size_t kMost = 8192;  // older consoles refuse more than 64 KB
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::wstring wide = platform::Widen(text).value_or(std::wstring(bytes, bytes + text.size()));
  for (std::wstring_view rest = wide; !rest.empty(); rest.remove_prefix(std::min(kMost, rest.size()))) {
    WriteConsoleW(stream, rest.data(), static_cast<DWORD>(std::min(kMost, rest.size())), &written, nullptr);
  }
}

std::optional<std::string> AskLine(HANDLE input, HANDLE output, std::string_view prompt, bool isShown) {
  while (true) {
    WriteText(output, prompt);
    const std::optional<std::wstring> line = ReadLine(input);
    if (!isShown) WriteText(output, "\r\n");
    if (!line) return std::nullopt;
    if (auto text = platform::Narrow(*line)) return text;
    WriteText(output, "media-adapter: what was typed " + NoTextProblem() + "\r\n");
  }
}

}  // namespace media_adapter::cli

// Local paths and other texts of the system, between its own form and the bytes in which the tool and the library take
// them: the one way there and back. A path is never made from a text, or a text from a path, without these: elsewhere
// than here that follows the user's region on Windows, not the code page in force. On POSIX all bytes stay as they are.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace media_adapter::cli {

// The path in the bytes in which the library takes it. A character that the code page lacks becomes "?", which no local
// name has.
std::string LocalText(const std::filesystem::path& path);
// The same when nothing is lost by it; none otherwise.
std::optional<std::string> ExactText(const std::filesystem::path& path);
// What is wrong with a text that has no such form, behind what it is.
std::string NoTextProblem();

// The path that the bytes mean. Where they are no text, nothing has it.
std::filesystem::path LocalPath(std::string_view text);

// True when a file has this path by a second name that the system keeps for it: who writes there replaces another file.
bool IsShortName(const std::filesystem::path& path);

// What went wrong, in English: the system's own words may be in the user's language, and its letters in no code page.
inline std::string ErrorText(const std::error_code& error) {
  const std::error_condition condition = error.default_error_condition();
  const bool isKnown = condition.category() == std::generic_category();
  return isKnown ? condition.message() : "system error " + std::to_string(error.value());
}

}  // namespace media_adapter::cli

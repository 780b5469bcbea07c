// The person at the terminal: whether there is one, and questions to them. Questions go to standard error and answers
// come from standard input; when one of the two is no terminal, both go by the controlling terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace media_adapter::cli {

// Once, first: makes texts and streams mean the same on every system, and a console understand what terminals do.
void PrepareStreams();

// Standard input is a file from now on, and comes byte for byte.
void PrepareInputFile();

bool IsInputTerminal();
bool IsOutputTerminal();
bool IsErrorTerminal();

// Columns of the terminal behind standard error; 80 when it does not tell.
size_t TerminalColumns();

// A line typed in answer, without its end. None when there is no terminal, or at its end of input.
std::optional<std::string> Ask(std::string_view question);

// The same, typed without echo.
std::optional<std::string> AskSecret(std::string_view question);

// True when the answer begins with "y". Never true without a terminal.
inline bool AskYes(std::string_view question) {
  const std::optional<std::string> answer = Ask(question);
  return answer && (answer->starts_with('y') || answer->starts_with('Y'));
}

}  // namespace media_adapter::cli

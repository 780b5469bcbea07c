// The person at the terminal: whether there is one, and questions to them. Questions go to standard error and answers
// come from standard input; when one of the two is no terminal, both go by the controlling terminal. Text passes
// between a terminal and the tool's bytes here only.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace media_adapter::cli {

// Once, first: makes streams mean the same on every system, and a console understand what terminals do until the
// process ends.
void PrepareStreams();

// To standard output or standard error: to a terminal as text, elsewhere byte for byte.
void Print(std::FILE* stream, std::string_view text);

// Standard input is a file from now on, and comes byte for byte, or as it is typed at the terminal.
void PrepareInputFile();
// Some of it; 0 at its end or when it cannot be read.
size_t ReadInput(std::span<char> buffer);

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

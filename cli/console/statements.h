// A line of the shell, taken apart into the commands that it holds. ";" ends one, unless it is quoted; "!" in front of
// one makes the rest of the line a command for the system's own shell, and "#" a comment.
#pragma once

#include <string_view>
#include <vector>

namespace media_adapter::cli {

// In their order, as parts of the line, blanks around them included. The last one may be unfinished or empty.
std::vector<std::string_view> SplitStatements(std::string_view line);

// Without the blanks around it.
std::string_view TrimStatement(std::string_view statement);

}  // namespace media_adapter::cli

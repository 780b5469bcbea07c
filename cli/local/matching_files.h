// Patterns for local files in lines of scripts, of -c and of the shell, which no other shell has taken apart.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace media_adapter::cli {

// word: with the marks of cli/console/wildcards.h. The paths come in order. A pattern that nothing matches gives
// itself. "**" follows no symbolic links.
std::vector<std::string> MatchingFiles(std::string_view word);

}  // namespace media_adapter::cli

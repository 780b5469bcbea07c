// Command lines of scripts, of -c and of the shell, split into words. Words are separated by blanks; "..." and '...'
// keep blanks in a word. A backslash is an ordinary character everywhere, because device paths are full of them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace media_adapter::cli {

// None when a quotation is not closed.
std::optional<std::vector<std::string>> SplitWords(std::string_view line);
// The same, with the marks of cli/console/wildcards.h in front of what was quoted.
std::optional<std::vector<std::string>> SplitPatterns(std::string_view line);

// The word at the end of an unfinished line, for completion.
struct LastWord {
  size_t start = 0;  // where it starts in the line, its quotation mark included
  std::string text;  // as SplitWords would give it
  char quote = 0;    // the quotation that is open at the end, or 0
  bool isFirst = true;
};

LastWord FindLastWord(std::string_view line);

}  // namespace media_adapter::cli

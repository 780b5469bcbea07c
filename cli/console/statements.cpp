#include "cli/console/statements.h"

#include <algorithm>

namespace media_adapter::cli {
namespace {

constexpr std::string_view kBlanks = " \t\r";

}  // namespace

std::vector<std::string_view> SplitStatements(std::string_view line) {
  std::vector<std::string_view> statements;
  size_t start = 0;
  char quote = 0;
  bool isWhole = false;  // up to the end of the line, whatever comes
  for (size_t i = 0; i < line.size() && !isWhole; ++i) {
    const char c = line[i];
    const bool isFirst = line.substr(start, i - start).find_first_not_of(kBlanks) == std::string_view::npos;
    isWhole = isFirst && (c == '!' || c == '#');
    if (quote == 0 && c == ';') {
      statements.push_back(line.substr(start, i - start));
      start = i + 1;
    } else if (quote != 0 && c == quote) {
      quote = 0;
    } else if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    }
  }
  statements.push_back(line.substr(start));
  return statements;
}

std::string_view TrimStatement(std::string_view statement) {
  statement.remove_prefix(std::min(statement.find_first_not_of(kBlanks), statement.size()));
  return statement.substr(0, statement.find_last_not_of(kBlanks) + 1);
}

}  // namespace media_adapter::cli

#include "cli/console/words.h"

#include <algorithm>

#include "cli/console/wildcards.h"

namespace media_adapter::cli {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// Walks a line character by character; `isOpen` tells whether a word has begun and not ended.
struct Walk {
  LastWord word;  // its text with the marks of cli/console/wildcards.h
  bool isOpen = false;

  // True when `c` ended a word, which is then in `word`.
  bool Take(char c, size_t position) {
    if (word.quote == 0 && IsBlank(c)) {
      const bool isEnd = isOpen;
      isOpen = false;
      return isEnd;
    }
    if (!isOpen) {
      word.start = position;
      word.text.clear();
      isOpen = true;
    }
    if (c == word.quote) {
      word.quote = 0;
    } else if (word.quote == 0 && (c == '"' || c == '\'')) {
      word.quote = c;
    } else {
      word.text += word.quote != 0 ? QuoteWildcards({&c, 1}) : std::string(1, c);
    }
    return false;
  }
};

}  // namespace

std::optional<std::vector<std::string>> SplitPatterns(std::string_view line) {
  std::vector<std::string> words;
  Walk walk;
  for (size_t i = 0; i < line.size(); ++i) {
    if (walk.Take(line[i], i)) words.push_back(walk.word.text);
  }
  if (walk.word.quote != 0) return std::nullopt;
  if (walk.isOpen) words.push_back(walk.word.text);
  return words;
}

std::optional<std::vector<std::string>> SplitWords(std::string_view line) {
  std::optional<std::vector<std::string>> words = SplitPatterns(line);
  if (words) std::ranges::transform(*words, words->begin(), Unquote);
  return words;
}

LastWord FindLastWord(std::string_view line) {
  Walk walk;
  for (size_t i = 0; i < line.size(); ++i) {
    if (walk.Take(line[i], i)) walk.word.isFirst = false;
  }
  walk.word.text = Unquote(walk.word.text);
  if (walk.isOpen) return walk.word;
  return {.start = line.size(), .text = {}, .quote = 0, .isFirst = walk.word.isFirst};
}

}  // namespace media_adapter::cli

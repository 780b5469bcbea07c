// The shell's Tab key: from the candidates for a word to what is typed next.
#include "cli/commands/completion.h"

#include <algorithm>

#include "cli/console/statements.h"
#include "cli/console/words.h"

namespace media_adapter::cli {
namespace {

// Whole characters of UTF-8.
std::string CommonPrefix(std::span<const Candidate> items) {
  const std::string& first = items.front().text;
  size_t length = first.size();
  for (const Candidate& item : items) {
    length = std::min(length, static_cast<size_t>(std::ranges::mismatch(first, item.text).in1 - first.begin()));
  }
  const auto isInside = [&] { return length > 0 && length < first.size() && (first[length] & 0xC0) == 0x80; };
  while (isInside()) --length;
  return first.substr(0, length);
}

bool IsWhole(const std::string& text) { return !text.ends_with('/') && !text.ends_with('='); }

// No quotation can hold such a name.
bool HasBothQuotes(const Candidate& item) {
  return item.text.find('"') != std::string::npos && item.text.find('\'') != std::string::npos;
}

// The word as it is typed: quoted when it must be, the quotation and the word ended when it is whole.
std::string Quote(const std::string& text, char quote, bool isWhole) {
  if (quote == 0 && text.find_first_of(" \t'\"*?[];") != std::string::npos) quote = '"';
  if (quote != 0 && text.find(quote) != std::string::npos) quote = quote == '"' ? '\'' : '"';
  std::string typed = quote != 0 ? quote + text : text;
  if (isWhole && quote != 0) typed += quote;
  return isWhole ? typed + ' ' : typed;
}

}  // namespace

std::vector<std::string> SplitBashLine(std::string_view line) {
  std::vector<std::string> words(1);
  char quote = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
      words.back() += line[++i];
    } else if (c == quote) {
      quote = 0;
    } else if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (quote == 0 && (c == ' ' || c == '\t')) {
      if (!words.back().empty()) words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

Completion Complete(std::string_view line, Context& context) {
  const std::string_view statement = SplitStatements(line).back();
  const LastWord word = FindLastWord(statement);
  const auto words = SplitWords(statement.substr(0, word.start));
  Completion completion = {.start = word.start + (line.size() - statement.size()), .replacement = {}, .candidates = {}};
  if (!words || TrimStatement(statement).starts_with('!') || TrimStatement(statement).starts_with('#'))
    return completion;
  CLI::App parser{"", ""};
  Action action;
  AddCommands(parser, context, action);
  Candidates found = FindCandidates(parser, *words, word.text, context);
  std::erase_if(found.items, HasBothQuotes);
  if (found.items.empty()) return completion;
  const std::string common = CommonPrefix(found.items);
  const bool isWhole = found.items.size() == 1 && IsWhole(common);
  if (isWhole || found.prefix.size() + common.size() > word.text.size()) {
    completion.replacement = Quote(found.prefix + common, word.quote, isWhole);
  } else {
    for (const Candidate& item : found.items) completion.candidates.push_back(item.text);
  }
  return completion;
}

}  // namespace media_adapter::cli

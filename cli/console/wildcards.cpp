#include "cli/console/wildcards.h"

#include <algorithm>

#include "cli/console/text.h"
#include "cli/local/local_name.h"

namespace media_adapter::cli {
namespace {

constexpr std::string_view kEveryDepth = "**";

// The first character of `text`, which is taken off. A byte that belongs to none is one that no other equals.
uint32_t TakeCharacter(std::string_view& text) {
  const auto byte = static_cast<uint8_t>(text[0]);
  Character character = kIsDosHost ? Character{byte, 1} : DecodeCharacter(text);
  if (character.length == 0) character = {0xDC00u + byte, 1};
  text.remove_prefix(character.length);
  return character.code;
}

// As above, from a word; true when the character was quoted.
bool TakeOfWord(std::string_view& word, uint32_t& code) {
  const bool isQuoted = word.size() > 1 && word[0] == kQuoteMark;
  if (isQuoted) word.remove_prefix(1);
  code = TakeCharacter(word);
  return isQuoted;
}

// Takes what stands behind a "[", its "]" included. False, with nothing taken, when there is no "]" behind it.
bool TakeSet(std::string_view& word, bool& isExcluding, std::vector<std::pair<uint32_t, uint32_t>>& ranges) {
  std::string_view rest = word;
  isExcluding = rest.starts_with('!') || rest.starts_with('^');
  if (isExcluding) rest.remove_prefix(1);
  ranges.clear();
  while (!rest.empty()) {
    uint32_t first = 0;
    const bool isQuoted = TakeOfWord(rest, first);
    if (first == ']' && !isQuoted && !ranges.empty()) {
      word = rest;
      return true;
    }
    uint32_t last = first;
    if (rest.size() > 1 && rest[0] == '-' && rest[1] != ']') {
      rest.remove_prefix(1);
      TakeOfWord(rest, last);
    }
    ranges.emplace_back(first, last);
  }
  return false;
}

uint32_t OtherCase(uint32_t code) {
  const uint32_t lower = code | 0x20;
  return code < 0x80 && lower >= 'a' && lower <= 'z' ? code ^ 0x20 : code;
}

}  // namespace

bool HasWildcards(std::string_view word) {
  while (!word.empty()) {
    uint32_t code = 0;
    bool isExcluding = false;
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    if (TakeOfWord(word, code)) continue;
    if (code == '*' || code == '?' || (code == '[' && TakeSet(word, isExcluding, ranges))) return true;
  }
  return false;
}

std::string QuoteWildcards(std::string_view text) {
  std::string word;
  for (const char c : text) {
    if (kWildcards.find(c) != std::string_view::npos) word += kQuoteMark;
    word += c;
  }
  return word;
}

std::string Unquote(std::string_view word) {
  std::string text(word);
  std::erase(text, kQuoteMark);
  return text;
}

NamePattern::NamePattern(std::string_view word, PatternRules rules) : rules_(rules) {
  while (!word.empty()) {
    uint32_t code = 0;
    Element element;
    const bool isQuoted = TakeOfWord(word, code);
    if (code == '*' && !isQuoted) {
      element.isMany = true;
    } else if (code == '?' && !isQuoted) {
      element.isExcluding = true;
    } else if (code != '[' || isQuoted || !TakeSet(word, element.isExcluding, element.ranges)) {
      element = {.ranges = {{code, code}}};
    }
    elements_.push_back(std::move(element));
  }
}

bool NamePattern::Accepts(const Element& element, uint32_t code) const {
  const uint32_t other = rules_.ignoresCase ? OtherCase(code) : code;
  const auto holds = [&](const std::pair<uint32_t, uint32_t>& range) {
    return (code >= range.first && code <= range.second) || (other >= range.first && other <= range.second);
  };
  return std::ranges::any_of(element.ranges, holds) != element.isExcluding;
}

// When the rest does not match, only the last "*" can have meant more: going back to an earlier one finds nothing new.
bool NamePattern::Matches(std::string_view name) const {
  const bool hasDot = !elements_.empty() && !elements_[0].isMany && !elements_[0].isExcluding;
  if (rules_.hidesDots && name.starts_with('.') && !(hasDot && Accepts(elements_[0], '.'))) return false;
  std::u32string codes;
  while (!name.empty()) codes += static_cast<char32_t>(TakeCharacter(name));
  size_t element = 0, code = 0, many = elements_.size(), start = 0;
  while (code < codes.size()) {
    if (element < elements_.size() && elements_[element].isMany) {
      many = element++;
      start = code;
    } else if (element < elements_.size() && Accepts(elements_[element], codes[code])) {
      ++element;
      ++code;
    } else if (many < elements_.size()) {
      element = many + 1;
      code = ++start;
    } else {
      return false;
    }
  }
  return std::all_of(elements_.begin() + static_cast<std::ptrdiff_t>(element), elements_.end(),
                     [](const Element& rest) { return rest.isMany; });
}

namespace {

class Search {
 public:
  Search(FileTree& tree, std::vector<std::string> words) : tree_(tree), words_(std::move(words)) {
    words_.erase(std::unique(words_.begin(), words_.end(),
                             [](const auto& a, const auto& b) { return a == kEveryDepth && b == kEveryDepth; }),
                 words_.end());
    if (!words_.empty() && words_.back() == kEveryDepth) words_.emplace_back("*");
  }

  std::vector<std::string> From(std::string folder) {
    size_t first = 0;
    for (; first < words_.size() && !HasWildcards(words_[first]); ++first) {
      folder = tree_.Join(folder, Unquote(words_[first]));
    }
    if (first == words_.size()) return {folder};
    Look(folder, first);
    std::ranges::sort(paths_, {}, [&](const std::string& path) { return std::pair(tree_.Fold(path), path); });
    paths_.erase(std::unique(paths_.begin(), paths_.end()), paths_.end());
    return std::move(paths_);
  }

 private:
  void Look(const std::string& folder, size_t index) {
    if (words_[index] != kEveryDepth) return Match(tree_.List(folder), index);
    tree_.ForEachFolder(folder, [&](const FileTree::Items& items) { Match(items, index + 1); });
  }

  void Match(const FileTree::Items& items, size_t index) {
    const std::string itself = tree_.Fold(Unquote(words_[index]));
    const auto isItself = [&](const FileTree::Item& item) { return tree_.Fold(item.name) == itself; };
    const bool isNamed = std::ranges::any_of(items, isItself);
    const NamePattern pattern(words_[index], tree_.Rules());
    for (const FileTree::Item& item : items) {
      if (!(isNamed ? isItself(item) : pattern.Matches(item.name))) continue;
      if (index + 1 == words_.size()) {
        paths_.push_back(item.path);
      } else if (item.isFolder) {
        Look(item.path, index + 1);
      }
    }
  }

  FileTree& tree_;
  std::vector<std::string> words_;
  std::vector<std::string> paths_;
};

}  // namespace

std::vector<std::string> FindMatches(FileTree& tree, std::string folder, std::vector<std::string> words) {
  return Search(tree, std::move(words)).From(std::move(folder));
}

}  // namespace media_adapter::cli

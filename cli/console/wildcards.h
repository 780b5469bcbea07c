// Patterns for names, as shells have them: "*" stands for any characters, "?" for one, "[...]" for one of a set or of
// ranges, "[!...]" for one that is not among them, and "**" as a whole name for folders of every depth. In a word that
// may be a pattern a zero byte, which no argument can hold, stands before each of these characters that was quoted.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace media_adapter::cli {

inline constexpr std::string_view kWildcards = "*?[";
inline constexpr char kQuoteMark = '\0';

// True when `word` stands for more than itself.
bool HasWildcards(std::string_view word);
// The word that stands for `text` only.
std::string QuoteWildcards(std::string_view text);
// What the word is when it stands for itself only.
std::string Unquote(std::string_view word);

struct PatternRules {
  bool ignoresCase = false;  // of A to Z
  bool hidesDots = true;     // a "." at the start of a name has to stand in the pattern
};

class NamePattern {
 public:
  explicit NamePattern(std::string_view word, PatternRules rules = {});
  // name: UTF-8, on Windows bytes.
  bool Matches(std::string_view name) const;

 private:
  // What one character of a name may be.
  struct Element {
    bool isMany = false;  // any number of any characters instead
    bool isExcluding = false;
    std::vector<std::pair<uint32_t, uint32_t>> ranges{};
  };
  bool Accepts(const Element& element, uint32_t code) const;

  PatternRules rules_;
  std::vector<Element> elements_;
};

// Where the paths that a pattern stands for are looked for. Listing a folder reports what goes wrong by itself.
class FileTree {
 public:
  struct Item {
    std::string name;  // as NamePattern takes it
    std::string path;
    bool isFolder = false;
  };
  using Items = std::vector<Item>;

  virtual ~FileTree() = default;
  virtual std::string Join(const std::string& folder, const std::string& name) const = 0;
  virtual Items List(const std::string& folder) = 0;
  // Calls `visit` for the folder and each one below it whose names do not start with ".", once each.
  virtual void ForEachFolder(const std::string& folder, const std::function<void(const Items&)>& visit) = 0;
  // The same for all spellings of a path or name that are one.
  virtual std::string Fold(const std::string& text) const = 0;
  virtual PatternRules Rules() const = 0;
};

// The paths that `words`, the names of a path from `folder` on, stand for, in order. Where something has a name that
// is a word exactly as it stands, the word means that and is no pattern.
std::vector<std::string> FindMatches(FileTree& tree, std::string folder, std::vector<std::string> words);

}  // namespace media_adapter::cli

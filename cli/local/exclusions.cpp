#include "cli/local/exclusions.h"

#include <algorithm>
#include <span>

#include "cli/console/wildcards.h"

namespace media_adapter::cli {
namespace {

using Names = std::vector<std::string_view>;

Names Split(std::string_view path) {
  Names names;
  for (size_t end = 0; end != std::string_view::npos; path.remove_prefix(std::min(end + 1, path.size()))) {
    end = path.find('/');
    names.push_back(path.substr(0, end));
  }
  return names;
}

// words: of the pattern. A "**" at its end stands for one name at least.
bool Matches(std::span<const std::string_view> words, std::span<const std::string_view> names) {
  if (words.empty()) return names.empty();
  const auto rest = words.subspan(1);
  if (words.front() == "**") {
    for (size_t i = rest.empty() ? 1 : 0; i <= names.size(); ++i) {
      if (Matches(rest, names.subspan(i))) return true;
    }
    return false;
  }
  const NamePattern pattern(words.front(), {.ignoresCase = true, .hidesDots = false});
  return !names.empty() && pattern.Matches(names.front()) && Matches(rest, names.subspan(1));
}

}  // namespace

bool Exclusions::Has(std::string_view path, bool isFolder) const {
  return std::ranges::any_of(patterns_, [&](std::string_view pattern) {
    if (pattern.size() > 1 && pattern.ends_with('/')) {
      if (!isFolder) return false;
      pattern.remove_suffix(1);
    }
    const std::string whole = pattern.starts_with('/') ? std::string(pattern.substr(1)) : "**/" + std::string(pattern);
    return Matches(Split(whole), Split(path));
  });
}

}  // namespace media_adapter::cli

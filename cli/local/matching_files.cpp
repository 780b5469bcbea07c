#include "cli/local/matching_files.h"

#include <filesystem>

#include "cli/console/wildcards.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSeparators = kIsDosHost ? "\\/" : "/";

// A folder that cannot be listed matches nothing, as in other shells.
class LocalTree : public FileTree {
 public:
  std::string Join(const std::string& folder, const std::string& name) const override {
    return folder.empty() || kSeparators.find(folder.back()) != std::string_view::npos ? folder + name
                                                                                       : folder + "/" + name;
  }

  Items List(const std::string& folder) override {
    std::error_code error;
    Items items;
    for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end; !error && entry != end;
         entry.increment(error)) {
      std::error_code unknown;
      const std::string name = LocalText(entry->path().filename());
      items.push_back({name, Join(folder, name), entry->is_directory(unknown)});
    }
    return items;
  }

  void ForEachFolder(const std::string& folder, const std::function<void(const Items&)>& visit) override {
    const Items items = List(folder);
    visit(items);
    for (const Item& item : items) {
      std::error_code error;
      const bool isLink = fs::is_symlink(item.path, error);
      if (item.isFolder && !isLink && !item.name.starts_with('.')) ForEachFolder(item.path, visit);
    }
  }

  std::string Fold(const std::string& text) const override { return text; }
  PatternRules Rules() const override { return {.ignoresCase = kIsDosHost}; }
};

}  // namespace

std::vector<std::string> MatchingFiles(std::string_view word) {
  if (!HasWildcards(word)) return {Unquote(word)};
  const size_t root = std::min(word.find_first_not_of(kSeparators), word.size());
  std::vector<std::string> words;
  for (size_t start = root; start < word.size();) {
    const size_t end = std::min(word.find_first_of(kSeparators, start), word.size());
    if (end > start) words.emplace_back(word.substr(start, end - start));
    start = end + 1;
  }
  LocalTree tree;
  std::vector<std::string> paths = FindMatches(tree, std::string(word.substr(0, root)), std::move(words));
  return paths.empty() ? std::vector{Unquote(word)} : paths;
}

}  // namespace media_adapter::cli

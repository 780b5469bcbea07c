#include "cli/local/matching_files.h"

#include <filesystem>

#include "cli/console/wildcards.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kEnds = kIsDosHost ? "\\/:" : "/";  // of what a name can follow

// A folder that cannot be listed matches nothing, as in other shells.
class LocalTree : public FileTree {
 public:
  std::string Join(const std::string& folder, const std::string& name) const override {
    const bool isEnded = folder.empty() || kEnds.find(folder.back()) != std::string_view::npos;
    return folder + (isEnded ? "" : std::string(1, kEnds.front())) + name;
  }

  Items List(const std::string& folder) override {
    std::error_code error;
    Items items;
    for (fs::directory_iterator entry(LocalPath(folder.empty() ? "." : folder), error), end; !error && entry != end;
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
      const bool isLink = fs::is_symlink(LocalPath(item.path), error);
      if (item.isFolder && !isLink && !item.name.starts_with('.')) ForEachFolder(item.path, visit);
    }
  }

  std::string Fold(const std::string& text) const override { return text; }
  PatternRules Rules() const override { return {.ignoresCase = kIsDosHost}; }
};

}  // namespace

std::vector<std::string> MatchingFiles(std::string_view word) {
  if (!HasWildcards(word)) return {Unquote(word)};
  const fs::path path = LocalPath(word);
  std::vector<std::string> words;
  for (const fs::path& name : path.relative_path()) {
    if (!name.empty()) words.push_back(LocalText(name));
  }
  LocalTree tree;
  std::vector<std::string> paths = FindMatches(tree, LocalText(path.root_path()), std::move(words));
  return paths.empty() ? std::vector{Unquote(word)} : paths;
}

}  // namespace media_adapter::cli

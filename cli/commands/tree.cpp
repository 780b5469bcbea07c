// The "tree" command.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/console/colors.h"
#include "cli/device/volume_name.h"
#include "cli/device/walk.h"
#include "cli/local/local_name.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

struct TreeOptions {
  bool hasFoldersOnly = false;
  bool hasSizes = false;
  bool hasShortSizes = false;
  uint32_t maxDepth = UINT32_MAX;
  std::string colors = "auto";
};

// A console of a code page may have no such lines.
struct Lines {
  const char* branch = kIsDosHost ? "|-- " : "├── ";
  const char* last = kIsDosHost ? "`-- " : "└── ";
  const char* further = kIsDosHost ? "|   " : "│   ";
  const char* none = "    ";
};

std::string Plural(size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

class TreePrinter : public WalkVisitor {
 public:
  TreePrinter(const Output& output, const TreeOptions& options, ItemResults& results)
      : output_(output), options_(options), results_(results), colors_(ChooseColors(options.colors)) {}

  void Root(Session& session, const std::string& path, Listing listing) {
    if (listing.isFile) return results_.Add(path, Problem("a file on the device, not a folder"));
    if (!output_.isJson) {
      const std::string device = output_.device.empty() ? "" : output_.device + ":";
      output_.Line(device + colors_.Paint(DisplayPath(path), true));
    }
    around_.clear();
    Walk(session, path, std::move(listing), *this);
    if (output_.isJson && !around_.empty()) {
      results_.AddJson({{"path", DisplayPath(path)}, {"contents", std::move(around_.front())}});
    }
  }

  void Enter(const std::string& /*path*/, std::vector<ListingEntry>& entries) override {
    if (options_.hasFoldersOnly) std::erase_if(entries, [](const ListingEntry& entry) { return !IsFolder(entry); });
    std::ranges::sort(entries, {},
                      [](const ListingEntry& e) { return std::pair(FoldDeviceName(EntryName(e)), EntryName(e)); });
    around_.push_back(ordered_json::array());
  }

  bool Visit(const WalkItem& item) override {
    ++(IsFolder(item.entry) ? folders_ : files_);
    areLast_.resize(item.depth);
    areLast_.back() = item.isLast;
    if (output_.isJson) {
      around_.back().push_back(EntryJson(item.path, item.entry));
    } else {
      output_.Line(Indent() + SizeOf(item.entry) +
                   colors_.Paint(ShowName(EntryName(item.entry)), IsFolder(item.entry)));
    }
    return item.depth < options_.maxDepth;
  }

  void Leave(const WalkItem& /*item*/) override {
    ordered_json contents = std::move(around_.back());
    around_.pop_back();
    if (output_.isJson) around_.back().back()["contents"] = std::move(contents);
  }

  void Fail(const std::string& path, const Answer& answer) override { results_.Add(path, answer); }

  void Report() const {
    if (output_.isJson) return;
    const std::string folders = Plural(folders_, "folder", "folders");
    output_.Line("\n" + folders + (options_.hasFoldersOnly ? "" : ", " + Plural(files_, "file", "files")));
  }

 private:
  std::string Indent() const {
    std::string indent;
    for (size_t i = 0; i + 1 < areLast_.size(); ++i) indent += areLast_[i] ? lines_.none : lines_.further;
    return indent + (areLast_.back() ? lines_.last : lines_.branch);
  }

  std::string SizeOf(const ListingEntry& entry) const {
    if (!options_.hasSizes && !options_.hasShortSizes) return {};
    const std::string size = options_.hasShortSizes ? ShortSize(entry.size) : std::to_string(entry.size);
    const size_t width = options_.hasShortSizes ? 4 : 11;
    return "[" + std::string(width - std::min(width, size.size()), ' ') + size + "]  ";
  }

  const Output& output_;
  const TreeOptions& options_;
  ItemResults& results_;
  const Colors colors_;
  const Lines lines_;
  std::vector<bool> areLast_;         // of the item that was visited last and of the folders around it
  std::vector<ordered_json> around_;  // contents of the folder that the walk is in, and of those around it
  size_t folders_ = 0, files_ = 0;
};

int RunTree(const Context& context, const std::vector<std::string>& arguments, const TreeOptions& options) {
  std::optional<TreePrinter> printer;
  const auto print = [&](const std::string& path, Listing listing, ItemResults& results) {
    if (!printer) printer.emplace(context.output, options, results);
    printer->Root(context.session, path, std::move(listing));
  };
  return ForEachPath(context, "tree", arguments, print, [&] {
    if (printer) printer->Report();
  });
}

}  // namespace

void DescribeTree(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<TreeOptions>();
  CLI::Option* const paths = parser.add_option("PATH", "Folders; the current folder when not given");
  paths->expected(0, -1)->allow_extra_args()->type_name(kPattern);
  parser.set_help_flag("--help", "Print this help message and exit");
  parser.add_flag("-d", options->hasFoldersOnly, "Folders only");
  parser.add_flag("-s", options->hasSizes, "Sizes in front of the names");
  parser.add_flag("-h", options->hasShortSizes, "Sizes like 1.5K");
  parser.add_option("-L", options->maxDepth, "No more than N folders deep")->type_name("N")->check(CLI::PositiveNumber);
  AddColorOption(parser, options->colors);
  parser.callback([=, &context, &action] {
    std::vector<std::string> arguments = paths->reduced_results();
    if (paths->count() == 0) arguments = {""};
    action = [=, &context] { return ForEachDevice(context, [&] { return RunTree(context, arguments, *options); }); };
  });
}

}  // namespace media_adapter::cli

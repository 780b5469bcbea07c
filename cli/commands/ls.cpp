// The "ls" command.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <tuple>

#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/colors.h"
#include "cli/console/wildcards.h"
#include "cli/device/volume_name.h"
#include "cli/device/walk.h"

namespace media_adapter::cli {
namespace {

struct ListOptions {
  bool isAll = false;
  bool isFolderItself = false;
  bool isLong = false;
  bool isNameOnly = false;
  bool isShortSize = false;
  bool isRecursive = false;
  bool isReverse = false;
  bool isBySize = false;
  bool isByTime = false;
  bool isUnsorted = false;
  std::string colors = "auto";
};

int64_t TimeNumber(const ListingEntry& entry) {
  return ((((entry.year * int64_t{16} + entry.month) * 32 + entry.day) * 32 + entry.hour) * 64 + entry.minute) * 64 +
         entry.second;
}

class Lister : public WalkVisitor {
 public:
  Lister(const Output& output, const ListOptions& options, ItemResults& results)
      : output_(output), options_(options), results_(results), colors_(ChooseColors(options.colors)) {}

  // Files, and folders that are listed themselves: their entries, named after the paths that led to them.
  void Items(std::vector<std::pair<std::string, ListingEntry>> items, bool hasPaths) {
    Sort(items, [](const auto& item) { return std::pair(item.first, &item.second); });
    rows_.clear();
    for (const auto& [path, entry] : items) {
      Add(path, entry, hasPaths || SplitDevicePath(path).name.empty() ? DisplayPath(path) : ShowName(EntryName(entry)));
    }
    Print({});
  }

  // What stands above the rows of each folder that comes.
  bool hasHeadings = false;

  void Enter(const std::string& path, std::vector<ListingEntry>& entries) override {
    Sort(entries, [](const ListingEntry& entry) { return std::pair(EntryName(entry), &entry); });
    rows_.clear();
    for (const ListingEntry& entry : entries) {
      if (options_.isAll || !IsDotEntry(entry)) {
        Add(IsDotEntry(entry) ? path : JoinDevicePath(path, EntryName(entry)), entry, ShowName(EntryName(entry)));
      }
    }
    Print(path);
  }

  bool Visit(const WalkItem& /*item*/) override { return options_.isRecursive; }
  void Fail(const std::string& path, const Answer& answer) override {
    if (options_.isRecursive) results_.Add(path, answer);
  }

 private:
  // get(item): its name and its entry
  template <typename Items, typename Get>
  void Sort(Items& items, const Get& get) const {
    if (options_.isUnsorted) return;
    std::ranges::sort(items, {}, [&](const auto& item) {
      const auto [name, entry] = get(item);
      const int64_t rank = options_.isBySize ? int64_t{entry->size} : options_.isByTime ? TimeNumber(*entry) : 0;
      return std::tuple(-rank, FoldDeviceName(name), name);
    });
    if (options_.isReverse) std::ranges::reverse(items);
  }

  void Add(const std::string& path, const ListingEntry& entry, const std::string& shown) {
    if (output_.isJson) return results_.AddJson(EntryJson(path, entry));
    const std::string name = colors_.Paint(shown, IsFolder(entry));
    if (isNameOnly_) return rows_.push_back({name});
    const std::string size = options_.isShortSize ? ShortSize(entry.size) : std::to_string(entry.size);
    rows_.push_back({AttributesText(entry), size, TimeText(entry), name});
  }

  // path: the folder that the rows are of, or ""
  void Print(const std::string& path) {
    if (output_.isJson || (path.empty() && rows_.empty())) return;
    if (hasHeadings && !path.empty()) {
      const std::string device = output_.device.empty() ? "" : output_.device + ":";
      output_.Line((isFirst_ ? "" : "\n") + device + DisplayPath(path) + ":");
    }
    isFirst_ = false;
    static const std::vector<Column> kLong = {{"ATTR"}, {"SIZE", true}, {"MODIFIED"}, {"NAME"}};
    static const std::vector<Column> kNames = {{""}};
    output_.Table(isNameOnly_ ? kNames : kLong, rows_);
  }

  const Output& output_;
  const ListOptions& options_;
  ItemResults& results_;
  const Colors colors_;
  const bool isNameOnly_ = options_.isNameOnly && !options_.isLong;
  std::vector<Row> rows_;
  bool isFirst_ = true;
};

int RunList(const Context& context, const std::vector<std::string>& arguments, const ListOptions& options) {
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, "ls", arguments, patterns)) return kUsage;
  Session& session = context.session;
  if (const int code = session.Prepare(); code != kSuccess) return code;
  ItemResults results(context.output, "ls");
  const bool isOne = patterns.size() == 1 && !HasWildcards(patterns.front());
  std::vector<std::pair<std::string, ListingEntry>> items;
  std::vector<std::pair<std::string, Listing>> folders;
  for (const std::string& path : results.Expand(session, patterns)) {
    if (!results.MayGoOn()) break;
    Listing listing = session.List(path);
    Answer answer = listing.answer;
    if (listing.isFile || (options.isFolderItself && answer.IsOk())) {
      const Found found = FindItem(session, path);
      answer = found.entry ? found.answer : Problem("in a folder with too many entries to list");
      if (found.entry) items.emplace_back(path, *found.entry);
    } else if (answer.IsOk()) {
      folders.emplace_back(path, std::move(listing));
    }
    if (answer.IsOk()) continue;
    answer = ExplainMissing(session, path, answer);
    if (isOne) return context.output.Failed("ls " + DisplayPath(path), answer);
    results.Add(path, answer);
  }
  Lister lister(context.output, options, results);
  lister.Items(std::move(items), !isOne);
  lister.hasHeadings = options.isRecursive || !isOne;
  for (auto& [path, listing] : folders) {
    if (results.MayGoOn()) Walk(session, path, std::move(listing), lister);
  }
  return results.Finish();
}

}  // namespace

void DescribeList(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<ListOptions>();
  CLI::Option* const paths = parser.add_option("PATH",
                                               "Folders, or files to see their rows; the current folder when "
                                               "not given");
  paths->expected(0, -1)->allow_extra_args()->type_name(kPattern);
  parser.set_help_flag("--help", "Print this help message and exit");
  const std::tuple<const char*, bool&, const char*> flags[] = {
      {"-a,--all", options->isAll, "The rows \".\" and \"..\" too"},
      {"-d,--directory", options->isFolderItself, "Folders themselves instead of what is in them"},
      {"-l", options->isLong, "One row an item with its attributes, size and time, as without -1"},
      {"-1", options->isNameOnly, "Names only, one a line"},
      {"-h,--human-readable", options->isShortSize, "Sizes like 1.5K"},
      {"-R,--recursive", options->isRecursive, "All folders below, each under its path"},
      {"-r,--reverse", options->isReverse, "The other way round"},
      {"-S", options->isBySize, "By size, the largest first"},
      {"-t", options->isByTime, "By time, the newest first"},
      {"-U", options->isUnsorted, "In the order in which the folder holds them"}};
  for (const auto& [names, isSet, text] : flags) parser.add_flag(names, isSet, text);
  AddColorOption(parser, options->colors);
  parser.callback([=, &context, &action] {
    std::vector<std::string> arguments = paths->reduced_results();
    if (paths->count() == 0) arguments = {""};
    action = [=, &context] { return ForEachDevice(context, [&] { return RunList(context, arguments, *options); }); };
  });
}

}  // namespace media_adapter::cli

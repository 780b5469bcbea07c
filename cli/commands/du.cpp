// The "du" command. It adds up the sizes of files: how much of a volume they occupy, in clusters, no listing tells.
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/device/walk.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

struct UsageOptions {
  bool isSummary = false;
  bool hasFiles = false;
  bool hasTotal = false;
  bool isInBytes = false;
  bool isShortSize = false;
  uint32_t maxDepth = UINT32_MAX;
};

struct Usage {
  uint64_t bytes = 0;
  uint64_t files = 0;

  void operator+=(const Usage& other) {
    bytes += other.bytes;
    files += other.files;
  }
};

// Adds up what is below one path after the other, and keeps what is to be printed.
class Counter : public WalkVisitor {
 public:
  Counter(const UsageOptions& options, bool isJson, ItemResults& results)
      : options_(options), isJson_(isJson), results_(results) {}

  void Path(Session& session, const std::string& path, Listing listing) {
    around_.clear();
    if (listing.isFile) {
      const Found found = FindItem(session, path);
      if (!found.entry) return results_.Add(path, Problem("in a folder with too many entries to list"));
      around_ = {{found.entry->size, 1}};
    }
    Walk(session, path, std::move(listing), *this);
    if (!results_.MayGoOn()) return;
    total_ += around_.front();
    Print(DisplayPath(path), around_.front());
  }

  void Enter(const std::string& /*path*/, std::vector<ListingEntry>& /*entries*/) override { around_.emplace_back(); }

  bool Visit(const WalkItem& item) override {
    if (IsFolder(item.entry)) return true;
    const Usage usage = {item.entry.size, 1};
    around_.back() += usage;
    if (options_.hasFiles && item.depth <= options_.maxDepth) Print(DisplayPath(item.path), usage);
    return false;
  }

  void Leave(const WalkItem& item) override {
    const Usage usage = around_.back();
    around_.pop_back();
    around_.back() += usage;
    if (item.depth <= options_.maxDepth) Print(DisplayPath(item.path), usage);
  }

  void Fail(const std::string& path, const Answer& answer) override { results_.Add(path, answer); }

  void PrintTotal() {
    if (options_.hasTotal) Print("total", total_);
  }

  std::vector<Row> rows;

 private:
  void Print(const std::string& path, const Usage& usage) {
    if (isJson_) return results_.AddJson({{"path", path}, {"size", usage.bytes}, {"files", usage.files}});
    const uint64_t blocks = options_.isInBytes ? usage.bytes : (usage.bytes + 1023) / 1024;
    rows.push_back({options_.isShortSize ? ShortSize(usage.bytes) : std::to_string(blocks), path});
  }

  const UsageOptions& options_;
  const bool isJson_;
  ItemResults& results_;
  std::vector<Usage> around_;  // of the folder that the walk is in, and of those around it
  Usage total_;
};

int RunUsage(const Context& context, const std::vector<std::string>& arguments, const UsageOptions& options) {
  std::optional<Counter> counter;
  const auto count = [&](const std::string& path, Listing listing, ItemResults& results) {
    if (!counter) counter.emplace(options, context.output.isJson, results);
    counter->Path(context.session, path, std::move(listing));
  };
  const auto print = [&] {
    if (!counter) return;
    counter->PrintTotal();
    const Column columns[] = {{"SIZE", true}, {"PATH"}};
    if (!context.output.isJson) context.output.Table(columns, counter->rows);
  };
  return ForEachPath(context, "du", arguments, count, print);
}

}  // namespace

void DescribeUsage(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<UsageOptions>();
  CLI::Option* const paths = parser.add_option("PATH", "Folders or files; the current folder when not given");
  paths->expected(0, -1)->allow_extra_args()->type_name(kPattern);
  parser.set_help_flag("--help", "Print this help message and exit");
  parser.add_flag("-s,--summarize", options->isSummary, "One row for each PATH");
  parser.add_flag("-a,--all", options->hasFiles, "Rows for files, too");
  parser.add_flag("-c,--total", options->hasTotal, "A row for all together at the end");
  parser.add_flag("-b,--bytes", options->isInBytes, "In bytes instead of units of 1024");
  parser.add_flag("-h,--human-readable", options->isShortSize, "Sizes like 1.5K");
  parser.add_option("-d,--max-depth", options->maxDepth, "Rows down to this depth; PATH itself has depth 0")
      ->type_name("N");
  parser.callback([=, &context, &action] {
    if (options->isSummary) options->maxDepth = 0;
    std::vector<std::string> arguments = paths->reduced_results();
    if (paths->count() == 0) arguments = {""};
    action = [=, &context] { return ForEachDevice(context, [&] { return RunUsage(context, arguments, *options); }); };
  });
}

}  // namespace media_adapter::cli

// The "find" command.
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/device/entry_filter.h"
#include "cli/device/walk.h"

namespace media_adapter::cli {
namespace {

struct FindOptions {
  EntryFilter filter;
  uint32_t minDepth = 0;
  uint32_t maxDepth = UINT32_MAX;
};

class Finder : public WalkVisitor {
 public:
  Finder(const Output& output, const FindOptions& options, ItemResults& results)
      : output_(output), options_(options), results_(results) {}

  bool Visit(const WalkItem& item) override {
    Look(item.path, item.entry, item.depth);
    return item.depth < options_.maxDepth;
  }
  void Fail(const std::string& path, const Answer& answer) override { results_.Add(path, answer); }

  void Look(const std::string& path, const ListingEntry& entry, size_t depth) const {
    if (depth < options_.minDepth || !options_.filter.Matches(entry, now_)) return;
    if (output_.isJson) return results_.AddJson(EntryJson(path, entry));
    static const std::vector<Column> kPath = {{""}};
    output_.Table(kPath, std::vector<Row>{{DisplayPath(path)}});
  }

 private:
  const Output& output_;
  const FindOptions& options_;
  ItemResults& results_;
  const std::chrono::sys_seconds now_ = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
};

int RunFind(const Context& context, const std::vector<std::string>& arguments, const FindOptions& options) {
  return ForEachPath(context, "find", arguments, [&](const std::string& path, Listing listing, ItemResults& results) {
    Finder finder(context.output, options, results);
    const Found found = FindItem(context.session, path);
    if (found.entry) finder.Look(path, *found.entry, 0);
    if (!found.entry) results.Add(path, Problem("in a folder with too many entries to list: its own row is not known"));
    if (options.maxDepth > 0) Walk(context.session, path, std::move(listing), finder);
  });
}

struct Condition {
  const char* name;
  const char* type;
  const char* text;
  bool (EntryFilter::*add)(std::string_view word);
};

constexpr Condition kConditions[] = {
    {"--name", "NAME", "The name matches; letter case counts", &EntryFilter::AddName},
    {"--iname", "NAME", "The name matches; letter case does not count", &EntryFilter::AddNameOfAnyCase},
    {"--type", "f|d", "A file, or a folder", &EntryFilter::AddType},
    {"--size", "[+-]N[ckMG]", "More than (+), less than (-) or just N blocks of 512 bytes, or bytes, KB, MB or GB",
     &EntryFilter::AddSize},
    {"--mtime", "[+-]N", "Changed more than, less than or just N days ago", &EntryFilter::AddDays},
    {"--mmin", "[+-]N", "The same in minutes", &EntryFilter::AddMinutes},
    {"--newermt", "TIME", "Changed after this time, like 2024-05-06 or \"2024-05-06 07:08\"",
     &EntryFilter::AddNewerThan}};

}  // namespace

void DescribeFind(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<FindOptions>();
  CLI::Option* const paths = parser.add_option("PATH", "Where to look; the current folder when not given");
  paths->expected(0, -1)->allow_extra_args()->type_name(kPattern);
  std::vector<CLI::Option*> conditions;
  for (const Condition& condition : kConditions) {
    const auto check = [add = condition.add](const std::string& word) {
      return (EntryFilter().*add)(word) ? std::string() : "not understood: " + word;
    };
    conditions.push_back(parser.add_option(condition.name, condition.text)->type_name(condition.type)->check(check));
    conditions.back()->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->allow_extra_args(false);
  }
  parser.add_option("--mindepth", options->minDepth, "Nothing above this depth; PATH itself has depth 0");
  parser.add_option("--maxdepth", options->maxDepth, "Nothing below this depth");
  parser.footer("All conditions must hold. One dash will do, as elsewhere: find /music -name \"*.mp3\" -size +10M");
  parser.callback([=, &context, &action] {
    for (size_t i = 0; i < conditions.size(); ++i) {
      for (const std::string& word : conditions[i]->reduced_results()) (options->filter.*kConditions[i].add)(word);
    }
    std::vector<std::string> arguments = paths->reduced_results();
    if (paths->count() == 0) arguments = {""};
    action = [=, &context] { return ForEachDevice(context, [&] { return RunFind(context, arguments, *options); }); };
  });
}

}  // namespace media_adapter::cli

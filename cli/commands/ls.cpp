// The "ls" command.
#include <array>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/items.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/text.h"
#include "cli/device/volume_name.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

// "drhsa", a "-" for what the entry is not.
std::string AttributesText(const ListingEntry& entry) {
  constexpr std::array<std::pair<uint8_t, char>, 5> kLetters = {
      {{0x10, 'd'}, {0x01, 'r'}, {0x02, 'h'}, {0x04, 's'}, {0x20, 'a'}}};
  std::string text;
  for (const auto& [bit, letter] : kLetters) text += (entry.attributes & bit) != 0 ? letter : '-';
  return text;
}

std::string TimeText(const ListingEntry& entry) {
  std::array<char, 48> text = {};
  std::snprintf(text.data(), text.size(), "%04u-%02u-%02u %02u:%02u:%02u", entry.year, entry.month, entry.day,
                entry.hour, entry.minute, entry.second);
  return text.data();
}

ordered_json EntryJson(const ListingEntry& entry) {
  return {{"name", ShowName(EntryName(entry))},
          {"folder", IsFolder(entry)},
          {"attributes", AttributesText(entry)},
          {"size", entry.size},
          {"modified", TimeText(entry)}};
}

int RunList(const Context& context, const std::string& argument, bool isAll) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "ls", {&argument, 1}, paths)) return kUsage;
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const std::string& path = paths.front();
  Listing listing = context.session.List(path);
  if (listing.isFile) {
    const Found found = FindItem(context.session, path);
    listing.answer = found.entry ? found.answer : Problem("a file in a folder with too many entries to list");
    if (found.entry) listing.entries = {*found.entry};
  }
  if (!listing.answer.IsOk()) {
    return context.output.Failed("ls " + DisplayPath(path), ExplainMissing(context.session, path, listing.answer));
  }
  if (!isAll) std::erase_if(listing.entries, IsDotEntry);
  if (context.output.isJson) {
    ordered_json list = ordered_json::array();
    for (const ListingEntry& entry : listing.entries) list.push_back(EntryJson(entry));
    context.output.Json(list);
    return kSuccess;
  }
  const Column columns[] = {{"ATTR"}, {"SIZE", true}, {"MODIFIED"}, {"NAME"}};
  std::vector<Row> rows;
  for (const ListingEntry& entry : listing.entries) {
    rows.push_back({AttributesText(entry), std::to_string(entry.size), TimeText(entry), ShowName(EntryName(entry))});
  }
  context.output.Table(columns, rows);
  return kSuccess;
}

}  // namespace

void DescribeList(CLI::App& parser, Context& context, Action& action) {
  auto path = std::make_shared<std::string>();
  auto isAll = std::make_shared<bool>(false);
  parser.add_option("PATH", *path, "A folder, or a file to see its row; the current folder when not given");
  parser.add_flag("-a,--all", *isAll, "The rows \".\" and \"..\" too");
  parser.callback([=, &context, &action] {
    action = [=, &context] { return ForEachDevice(context, [&] { return RunList(context, *path, *isAll); }); };
  });
}

}  // namespace media_adapter::cli

// Commands about the device's volume: ls, mkdir, rm, cd, pwd.
#include "cli/file_commands.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/interrupts.h"
#include "cli/several_devices.h"
#include "cli/text.h"
#include "cli/volume_name.h"
#include "fat/volume_names.h"

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

int RunMakeFolders(const Context& context, std::span<const std::string> arguments, bool withParents) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "mkdir", arguments, paths)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, "mkdir");
  for (const std::string& path : paths) {
    if (!results.MayGoOn()) break;
    results.Add(path, withParents ? MakeFolderAndParents(context, path) : MakeFolder(context, path));
  }
  return results.Finish();
}

int RunRemove(const Context& context, std::span<const std::string> arguments) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "rm", arguments, paths)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, "rm");
  for (const std::string& path : paths) {
    if (!results.MayGoOn()) break;
    results.Add(path, ExplainMissing(context.session, path, context.writer.Remove(path)));
  }
  return results.Finish();
}

int RunChangeFolder(const Context& context, const std::string& argument) {
  std::vector<std::string> paths;
  if (!ResolvePaths(context, "cd", {&argument, 1}, paths)) return kUsage;
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const std::string& path = paths.front();
  if (const Answer answer = CheckFolder(context.session, path); !answer.IsOk()) {
    return context.output.Failed("cd " + DisplayPath(path), ExplainMissing(context.session, path, answer));
  }
  context.session.folder = path;
  return kSuccess;
}

}  // namespace

std::string EntryName(const ListingEntry& entry) { return {entry.name, strnlen(entry.name, sizeof entry.name)}; }

bool IsFolder(const ListingEntry& entry) { return (entry.attributes & 0x10) != 0; }

bool IsDotEntry(const ListingEntry& entry) { return EntryName(entry) == "." || EntryName(entry) == ".."; }

Found FindItem(Session& session, const std::string& path) {
  const DevicePathParts parts = SplitDevicePath(path);
  if (!parts.name.empty()) {
    const Listing parent = session.List(parts.folder);
    const auto entry = std::ranges::find_if(parent.entries, [&](const ListingEntry& e) {
      return FoldDeviceName(EntryName(e)) == FoldDeviceName(parts.name);
    });
    if (entry != parent.entries.end()) return {parent.answer, IsFolder(*entry), *entry};
    const bool isListed = parent.answer.IsOk() || parent.answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES;
    if (!isListed && !parent.isFile) return {parent.answer, false, std::nullopt};
  }
  // The root, an item of a folder too large to list, or nothing at all: the path itself tells.
  const Listing itself = session.List(path);
  if (itself.isFile) return {{MEDIA_ADAPTER_OK, {}}, false, std::nullopt};
  if (itself.answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES)
    return {{MEDIA_ADAPTER_OK, {}}, true, std::nullopt};
  return {itself.answer, true, std::nullopt};
}

Answer ExplainMissing(Session& session, const std::string& path, Answer answer) {
  if (answer.status != MEDIA_ADAPTER_INVALID_PATH) return answer;
  for (size_t end = path.find('\\', 1); end != std::string::npos; end = path.find('\\', end + 1)) {
    const std::string folder = path.substr(0, end);
    const Listing listing = session.List(folder);
    answer.detail = "there is no folder " + DisplayPath(folder) + " on the device";
    if (listing.isFile) answer.detail = DisplayPath(folder) + " is a file on the device";
    if (listing.isFile || listing.answer.status == MEDIA_ADAPTER_INVALID_PATH) return answer;
  }
  answer.detail = "there is no " + DisplayPath(path) + " on the device";
  return answer;
}

Answer CheckFolder(Session& session, const std::string& path) {
  Listing listing = session.List(path);
  if (listing.isFile) return Problem("a file on the device, not a folder");
  // A folder with more entries than a listing holds is a folder all the same.
  if (listing.answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES) listing.answer.status = MEDIA_ADAPTER_OK;
  return listing.answer;
}

bool ResolvePaths(const Context& context, const std::string& command, std::span<const std::string> arguments,
                  std::vector<std::string>& paths) {
  for (const std::string& argument : arguments) {
    const VolumeName typed = TypedPath(argument);
    if (!typed.problem.empty()) {
      context.output.Failed(command + " " + Escape(argument), Problem(typed.problem), kUsage);
      return false;
    }
    paths.push_back(context.session.Resolve(typed.bytes));
  }
  return true;
}

std::string CheckNewName(std::string_view name) {
  const auto bad = std::ranges::find_if(name, [](char c) { return !CanHoldName({&c, 1}); });
  if (bad != name.end()) return "a volume cannot hold \"" + ShowName({&*bad, 1}) + "\" in a name";
  if (name.find('\xff') != std::string_view::npos) return "a volume cannot hold \"" + ShowName("\xff") + "\" in a name";
  if (name.find_first_not_of(' ') == std::string_view::npos) return "a volume cannot hold a name of spaces only";
  if (name.ends_with('.')) return "a volume cannot hold a name that ends in a dot";
  if (name.starts_with('.') && name.find('.', 1) == std::string_view::npos && name.size() <= 4) {
    return "a volume cannot hold a name of a dot and up to three characters";
  }
  return {};
}

Answer MakeFolder(const Context& context, const std::string& path) {
  const std::string name = SplitDevicePath(path).name;
  std::string problem = CheckNewName(name);
  const auto beyond = std::ranges::find_if(name, [](char c) { return static_cast<uint8_t>(c) >= 0x80; });
  if (beyond != name.end()) {
    problem = "the name of a new folder cannot hold \"" + ShowName({&*beyond, 1}) + "\": only ASCII characters";
  }
  if (!problem.empty()) return Problem(problem);
  if (name.empty()) return Problem("the root is there already");
  return ExplainMissing(context.session, SplitDevicePath(path).folder, context.writer.MakeFolder(path));
}

Answer MakeOrTakeFolder(const Context& context, const std::string& path) {
  Answer answer = MakeFolder(context, path);
  if (answer.status && answer.status != MEDIA_ADAPTER_NAME_IN_USE) return answer;
  // A name that could not be made may be there all the same, from another hand.
  return CheckFolder(context.session, path).IsOk() ? Answer{MEDIA_ADAPTER_OK, "there already"} : answer;
}

Answer MakeFolderAndParents(const Context& context, const std::string& path) {
  if (path == kRootPath) return context.session.List(path).answer;
  Answer answer;
  for (size_t end = 0; end < path.size();) {
    end = std::min(path.find('\\', end + 1), path.size());
    answer = MakeOrTakeFolder(context, path.substr(0, end));
    if (!answer.IsOk()) break;
  }
  return answer;
}

ItemResults::ItemResults(const Output& output, std::string command)
    : output_(output), command_(std::move(command)), items_(std::make_unique<ordered_json>(ordered_json::array())) {}

ItemResults::~ItemResults() = default;

bool ItemResults::MayGoOn() const { return mayGoOn_ && !IsInterrupted(); }

void ItemResults::Add(const std::string& path, const Answer& answer, const std::string& local,
                      std::optional<uint64_t> size) {
  if (!answer.IsOk()) {
    hasFailed_ = true;
    // The library's own statuses up to here are about a path or the volume.
    mayGoOn_ =
        !answer.status || (*answer.status >= MEDIA_ADAPTER_NAME_IN_USE && *answer.status < MEDIA_ADAPTER_NO_RESPONSE);
    output_.ItemFailed(command_ + " " + (path.empty() ? Escape(local) : DisplayPath(path)), answer);
  }
  if (!output_.isJson) return;
  ordered_json item = ordered_json::object();
  if (!path.empty()) item["path"] = DisplayPath(path);
  if (!local.empty()) item["local"] = Escape(local);
  if (size) item["size"] = *size;
  item.update(AnswerJson(answer));
  items_->push_back(std::move(item));
}

int ItemResults::Finish() const {
  if (IsInterrupted()) output_.Error(command_ + ": interrupted; what came after was not begun");
  if (output_.isJson) output_.Json(*items_);
  return hasFailed_ ? kFailure : kSuccess;
}

void DescribeList(CLI::App& parser, Context& context, Action& action) {
  auto path = std::make_shared<std::string>();
  auto isAll = std::make_shared<bool>(false);
  parser.add_option("PATH", *path, "A folder, or a file to see its row; the current folder when not given");
  parser.add_flag("-a,--all", *isAll, "The rows \".\" and \"..\" too");
  parser.callback([=, &context, &action] {
    action = [=, &context] { return ForEachDevice(context, [&] { return RunList(context, *path, *isAll); }); };
  });
}

void DescribeMakeFolder(CLI::App& parser, Context& context, Action& action) {
  auto withParents = std::make_shared<bool>(false);
  CLI::Option* const paths = parser.add_option("PATH", "Folders to create");
  paths->expected(1, -1)->required()->allow_extra_args();
  parser.add_flag("-p,--parents", *withParents, "Create missing parents, and take a folder that is there for success");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] {
      return RunMakeFolders(context, arguments, *withParents);
    };
  });
}

void DescribeRemove(CLI::App& parser, Context& context, Action& action) {
  CLI::Option* const paths = parser.add_option("PATH", "Files to delete");
  paths->expected(1, -1)->required()->allow_extra_args();
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunRemove(context, arguments); };
  });
}

void DescribeChangeFolder(CLI::App& parser, Context& context, Action& action) {
  auto path = std::make_shared<std::string>("/");
  parser.add_option("PATH", *path, "The root when not given");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunChangeFolder(context, *path); }; });
}

void DescribePrintFolder(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] {
    action = [&context] {
      const std::string path = DisplayPath(context.session.folder);
      if (context.output.isJson) {
        context.output.Json(path);
      } else {
        context.output.Line(path);
      }
      return kSuccess;
    };
  });
}

}  // namespace media_adapter::cli

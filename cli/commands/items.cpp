#include "cli/commands/items.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/console/interrupts.h"
#include "cli/console/text.h"
#include "cli/console/wildcards.h"
#include "cli/device/matching_paths.h"
#include "cli/device/volume_name.h"
#include "fat/volume_names.h"

namespace media_adapter::cli {

using nlohmann::ordered_json;

ordered_json EntryJson(const std::string& path, const ListingEntry& entry) {
  return {{"name", EntryName(entry).empty() ? "/" : ShowName(EntryName(entry))},
          {"folder", IsFolder(entry)},
          {"attributes", AttributesText(entry)},
          {"size", entry.size},
          {"modified", entry.year == 0 ? ordered_json() : ordered_json(TimeText(entry))},
          {"path", DisplayPath(path)}};
}

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
  Found found = {itself.answer, true, std::nullopt};
  if (parts.name.empty()) found.entry = RootEntry();
  return found;
}

Answer ExplainMissing(Session& session, const std::string& path, Answer answer) {
  if (answer.status != MEDIA_ADAPTER_INVALID_PATH) return answer;
  for (size_t end = path.find('\\', 1); end != std::string::npos; end = path.find('\\', end + 1)) {
    const std::string folder = path.substr(0, end);
    if (HasWildcards(folder)) break;
    const Listing listing = session.List(folder);
    answer.detail = "there is no folder " + DisplayPath(folder) + " on the device";
    if (listing.isFile) answer.detail = DisplayPath(folder) + " is a file on the device";
    if (listing.isFile || listing.answer.status == MEDIA_ADAPTER_INVALID_PATH) return answer;
  }
  answer.detail = (HasWildcards(path) ? "nothing on the device matches " : "there is no ") + DisplayPath(path) +
                  (HasWildcards(path) ? "" : " on the device");
  return answer;
}

Answer CheckFolder(Session& session, const std::string& path) {
  Listing listing = session.List(path);
  if (listing.isFile) return Problem("a file on the device, not a folder");
  // A folder with more entries than a listing holds is a folder all the same.
  if (listing.answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES) listing.answer.status = MEDIA_ADAPTER_OK;
  return listing.answer;
}

bool ResolvePatterns(const Context& context, const std::string& command, std::span<const std::string> arguments,
                     std::vector<std::string>& patterns) {
  for (const std::string& argument : arguments) {
    const VolumeName typed = TypedPath(argument);
    if (!typed.problem.empty()) {
      context.output.Failed(command + " " + Escape(Unquote(argument)), Problem(typed.problem), kUsage);
      return false;
    }
    patterns.push_back(ResolveDevicePath(QuoteWildcards(context.session.folder), typed.bytes));
  }
  return true;
}

bool ResolvePaths(const Context& context, const std::string& command, std::span<const std::string> arguments,
                  std::vector<std::string>& paths) {
  if (!ResolvePatterns(context, command, arguments, paths)) return false;
  std::ranges::transform(paths, paths.begin(), Unquote);
  return true;
}

void AddColorOption(CLI::App& parser, std::string& when) {
  parser.add_flag("--color{always}", when, "Colours for names: auto (on a terminal, as without this), always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
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
    mayGoOn_ = mayGoOn_ && !IsOfDevice(answer);
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

void ItemResults::AddJson(ordered_json item) { items_->push_back(std::move(item)); }

std::vector<std::string> ItemResults::Expand(Session& session, std::span<const std::string> patterns) {
  std::vector<std::string> paths;
  for (const std::string& pattern : patterns) {
    if (!MayGoOn()) break;
    const auto fail = [&](const std::string& path, const Answer& answer) { Add(path, answer); };
    std::ranges::move(MatchingPaths(session, pattern, fail), std::back_inserter(paths));
  }
  return paths;
}

int ForEachPath(const Context& context, const std::string& command, std::span<const std::string> arguments,
                const std::function<void(const std::string& path, Listing listing, ItemResults& results)>& run,
                const std::function<void()>& finish) {
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, command, arguments, patterns)) return kUsage;
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  ItemResults results(context.output, command);
  for (const std::string& path : results.Expand(context.session, patterns)) {
    if (!results.MayGoOn()) break;
    Listing listing = context.session.List(path);
    if (listing.isFile || listing.answer.IsOk()) {
      run(path, std::move(listing), results);
    } else {
      results.Add(path, ExplainMissing(context.session, path, listing.answer));
    }
  }
  finish();
  return results.Finish();
}

int ItemResults::Finish() const {
  if (IsInterrupted()) output_.Error(command_ + ": interrupted; what came after was not begun");
  if (output_.isJson) output_.Json(*items_);
  return hasFailed_ ? kFailure : kSuccess;
}

}  // namespace media_adapter::cli

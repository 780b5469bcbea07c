// What the commands about files share: items of the volume, and results of commands that work on several of them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/commands/table.h"
#include "cli/console/output.h"
#include "cli/device/entry.h"
#include "cli/device/session.h"

namespace media_adapter::cli {

// What --json tells of it. The root has no time.
nlohmann::ordered_json EntryJson(const std::string& path, const ListingEntry& entry);

struct Found {
  Answer answer;
  bool isFolder = false;
  std::optional<ListingEntry> entry;  // none for what the folder around it does not list under this name
};

Found FindItem(Session& session, const std::string& path);

// The answer, and when it is that of an invalid path (244), which part of the path is not there.
Answer ExplainMissing(Session& session, const std::string& path, Answer answer);

// Ok when the path names a folder.
Answer CheckFolder(Session& session, const std::string& path);

// The absolute device paths of a command's arguments. False when one is none, which has been printed: wrong usage.
bool ResolvePaths(const Context& context, const std::string& command, std::span<const std::string> arguments,
                  std::vector<std::string>& paths);

// The same for arguments that may be patterns, which go to MatchingPaths once the device is ready.
bool ResolvePatterns(const Context& context, const std::string& command, std::span<const std::string> arguments,
                     std::vector<std::string>& patterns);

// --color[=WHEN], for a command that prints names.
void AddColorOption(CLI::App& parser, std::string& when);

// Why a volume cannot hold a new item of this name, or "".
std::string CheckNewName(std::string_view name);

// Makes a folder. Its parent must exist.
Answer MakeFolder(const Context& context, const std::string& path);
// As above, or takes a folder that is there already.
Answer MakeOrTakeFolder(const Context& context, const std::string& path);
// As above for every folder on the way.
Answer MakeFolderAndParents(const Context& context, const std::string& path);

// Collects the results of a command's items: failures are printed at once, JSON at the end.
class ItemResults {
 public:
  ItemResults(const Output& output, std::string command);
  ~ItemResults();

  // path: on the device, or empty when the item is local only; local: a local path, or empty.
  void Add(const std::string& path, const Answer& answer, const std::string& local = {},
           std::optional<uint64_t> size = std::nullopt);
  // Something to print of an item that did not fail.
  void AddJson(nlohmann::ordered_json item);
  // The paths that the patterns stand for; what could not be looked through is added as a failure.
  std::vector<std::string> Expand(Session& session, std::span<const std::string> patterns);
  // False once an item has failed for a reason that lies with the device, and after an interrupt.
  bool MayGoOn() const;
  // The command's exit code.
  int Finish() const;

 private:
  const Output& output_;
  const std::string command_;
  bool hasFailed_ = false;
  bool mayGoOn_ = true;
  std::unique_ptr<nlohmann::ordered_json> items_;
};

// Makes the device ready, takes `arguments` for patterns, and hands on what they stand for: a listing of a folder, or
// one that says that it is a file. Last calls `finish`. The command's exit code.
int ForEachPath(
    const Context& context, const std::string& command, std::span<const std::string> arguments,
    const std::function<void(const std::string& path, Listing listing, ItemResults& results)>& run,
    const std::function<void()>& finish = [] {});

}  // namespace media_adapter::cli

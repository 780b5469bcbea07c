// Copying from the device, for get and sync: plans which files come, which folders are made and what is deleted here,
// then does it. The device's names decide where local files come to lie, so each passes IsSafeLocalName, and no
// symbolic link inside the target is followed.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "cli/commands/transfer.h"
#include "cli/local/exclusions.h"
#include "cli/local/temporary_folder.h"

namespace media_adapter::cli {

// Each file comes into a private folder first and is renamed to its place when it is whole, so that no part of a file
// ever stands there or replaces a good copy.
class Getter {
 public:
  // root: the local folder that everything goes into, and the private folder with it.
  Getter(const Context& context, std::string command, const TransferOptions& options, std::filesystem::path root);

  // The paths that the patterns stand for; what could not be looked through is a failure.
  std::vector<std::string> Expand(std::span<const std::string> patterns);
  // Plans one item. newName: below the root, or "" for the name that the path spells.
  void Item(const std::string& path, const std::string& newName);
  // Plans what is in a folder, for a root that may have to be made.
  void Contents(const std::string& path);
  // Carries out. The command's exit code.
  int Run(bool isSummaryAlways);

 private:
  struct Step {
    bool isFolder = false;
    std::string path;
    std::filesystem::path local;
    std::optional<ListingEntry> entry{};
  };

  void File(const Step& step);
  void Folder(const Step& step, const std::string& relative);
  void Entries(const std::string& path, const std::filesystem::path& local, const std::string& relative);
  void Entry(const Step& step, const std::string& relative);
  void DeleteOthers(const std::filesystem::path& folder, const std::string& relative,
                    const std::set<std::string>& names);
  bool PlanDeletion(const std::filesystem::path& local, const std::string& relative);
  void RunDeletions();
  bool RunStep(const Step& step);
  Answer Fetch(const Step& step);

  const Context& context_;
  const TransferOptions& options_;
  const std::filesystem::path root_;
  const Exclusions exclusions_;
  Transfer transfer_;
  std::vector<Step> steps_;
  std::vector<std::filesystem::path> deletions_;  // what is in a folder before the folder
  std::set<uint32_t> seenFolders_;                // first clusters
  std::optional<TemporaryFolder> staging_;
};

}  // namespace media_adapter::cli

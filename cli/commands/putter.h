// Copying to the device, for put and sync: plans which files go, which folders are made and which files are deleted on
// the device, then does it. Folders of the device are listed only where something depends on what is in them.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cli/commands/transfer.h"
#include "cli/local/exclusions.h"
#include "cli/local/temporary_folder.h"

namespace media_adapter::cli {

class Putter {
 public:
  // shownLocal: what the local file is called in messages, or "" for its path.
  Putter(const Context& context, std::string command, const TransferOptions& options, std::string shownLocal = {});

  // Plans one item. newName: on the device, or "" for the name of `local`.
  void Item(const std::filesystem::path& local, const std::string& folderPath, const std::string& newName);
  // Plans what is in a folder, for a folder of the device that may have to be made.
  void Contents(const std::filesystem::path& local, const std::string& folderPath);
  // Carries out. The command's exit code.
  int Run(bool isSummaryAlways);

 private:
  // A folder of the device, as far as it is known.
  struct Target {
    std::string path;
    std::string relative;                           // to the folder that is copied into
    bool isExisting = true;                         // false: it will be made
    bool isListed = false;                          // and `entries` are all that is in it
    std::map<std::string, ListingEntry> entries{};  // by folded name
  };
  struct Step {
    bool isFolder = false;
    std::filesystem::path local;
    std::string path;
  };

  std::string Shown(const std::filesystem::path& local) const;
  void Refuse(const std::filesystem::path& local, const std::string& problem);
  std::string NameOf(const std::filesystem::path& local, const std::filesystem::path& ownName,
                     const std::string& newName);
  bool Claim(const std::string& path, const std::filesystem::path& local);
  bool List(Target& target, const std::filesystem::path& local);
  void ItemInto(const std::filesystem::path& local, const Target& target, const std::string& newName);
  void File(const std::filesystem::path& local, const Target& target, const std::string& newName);
  void Folder(const std::filesystem::path& local, const Target& target, const std::string& newName);
  void Entries(const std::filesystem::path& local, const Target& target);
  void DeleteOthers(const Target& target);
  void PlanDeletion(const ListingEntry& entry, const std::string& path, const std::string& relative);
  void RunDeletions();
  bool RunStep(const Step& step);
  Answer Store(const std::filesystem::path& local, const std::string& path, const LocalState& before);
  std::string SourceOf(const std::filesystem::path& local, const std::string& name);

  const Context& context_;
  const TransferOptions& options_;
  const std::string shownLocal_;
  const Exclusions exclusions_;
  Transfer transfer_;
  std::vector<Step> steps_;
  std::vector<TransferItem> deletions_;
  size_t keptFolders_ = 0;                     // that a deletion leaves empty
  std::vector<std::filesystem::path> around_;  // the folders that the running one lies in
  std::set<uint32_t> seenFolders_;             // first clusters
  std::map<std::string, std::string> taken_;   // folded device paths, and the local path that each came from
  std::optional<TemporaryFolder> links_;
};

}  // namespace media_adapter::cli

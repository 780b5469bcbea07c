// Copying and moving on the device, for cp and mv. A device can do neither: a file comes to this machine and goes back
// under its new place; to move it, what went is read back and compared, and only then is the source deleted. Whatever
// fails on the way, the source is there until its copy is known to be whole.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "cli/commands/items.h"
#include "cli/device/walk.h"
#include "cli/local/temporary_folder.h"

namespace media_adapter::cli {

struct CopyOptions {
  bool isMove = false;
  bool isRecursive = false;
  bool keepsExisting = false;
  bool isVerbose = false;
};

class Copier : private WalkVisitor {
 public:
  Copier(const Context& context, const CopyOptions& options, ItemResults& results)
      : context_(context), options_(options), results_(results) {}

  // newName: in `folder`, or "" for the source's own.
  void Item(const std::string& source, const std::string& folder, const std::string& newName);

 private:
  struct File {
    std::string path;
    ListingEntry entry;
  };

  bool Visit(const WalkItem& item) override;
  void Fail(const std::string& path, const Answer& answer) override;

  void Folder(const std::string& source, const std::string& target);
  void CopyOrMove(const File& source, const std::string& target);
  Answer ChangeCase(const File& source, const std::string& target);
  Answer Replace(const File& source, const std::string& target);
  Answer Put(const File& source, const std::string& target);
  Answer Move(const File& source, const std::string& target);
  Answer ReadBack(const File& source, const std::string& target);
  Answer CheckTarget(const File& source, const std::string& target, bool& isSkipped);

  const Context& context_;
  const CopyOptions& options_;
  ItemResults& results_;
  std::string source_, target_;               // of the folder that is copied
  size_t failures_ = 0;                       // in it
  std::map<std::string, std::string> taken_;  // folded targets, and the source that each came from
  std::optional<TemporaryFolder> staging_;
};

}  // namespace media_adapter::cli

// A private folder for one file at a time that is on its way: to its place, to standard output, or to the device under
// another name. It goes, with the file, when the object does, and when a signal ends the process.
#pragma once

#include <filesystem>
#include <string>

#include "cli/console/interrupts.h"

namespace media_adapter::cli {

// One at a time.
class TemporaryFolder {
 public:
  // Inside `parent`, or inside the system's folder for temporary files.
  TemporaryFolder();
  explicit TemporaryFolder(const std::filesystem::path& parent);
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // Empty when it could not be made; Error() says why.
  const std::string& Path() const { return path_; }
  std::string Error() const { return error_.message(); }

  // The path of the one file that will be put in; the one before is removed.
  std::filesystem::path Use(const std::string& fileName);

 private:
  static void Remove();

  std::error_code error_;
  std::string path_;
  CleanupOnSignal cleanup_{Remove};
};

}  // namespace media_adapter::cli

// A private folder for a file, or two, on the way: to its place, to standard output, or to the device under
// another name. It goes, with the files, when the object does, and when a signal ends the process.
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
  std::string Error() const;

  // The path of the one file that will be put in; those before are removed.
  std::filesystem::path Use(const std::string& fileName);
  // Gives the file another name; its new path.
  std::filesystem::path Rename(const std::string& fileName, std::error_code& error);
  // The path of a second file beside it, until one of the two is used or renamed.
  std::filesystem::path UseAnother(const std::string& fileName);

 private:
  static void Remove();
  const char* Track(size_t slot, const std::string& fileName);

  std::error_code error_;
  std::string path_;
  CleanupOnSignal cleanup_{Remove};
};

}  // namespace media_adapter::cli

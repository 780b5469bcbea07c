// A folder for one file on its way to standard output. It goes, with the file, when the object does, and when a signal
// ends the process.
#pragma once

#include <string>

#include "cli/interrupts.h"

namespace media_adapter::cli {

// One at a time.
class TemporaryFolder {
 public:
  // fileName: of the one file that will be put in.
  explicit TemporaryFolder(const std::string& fileName);
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // Empty when it could not be made.
  const std::string& Path() const { return path_; }
  std::string FilePath() const;

 private:
  static void Remove();

  std::string path_;
  CleanupOnSignal cleanup_{Remove};
};

}  // namespace media_adapter::cli

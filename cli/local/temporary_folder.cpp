#include "cli/local/temporary_folder.h"

#include <unistd.h>

#include <array>

#include "cli/local/local_name.h"
#include "cli/local/local_text.h"
#include "cli/local/private_folder.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

// What a signal handler can reach; null while there is nothing to remove.
const char* volatile folderToRemove = nullptr;
std::array<const char* volatile, 2> filesToRemove = {};
std::array<std::string, 2> filePaths;
size_t current = 0;  // which of the two is the one file

void Forget(size_t slot) {
  if (filesToRemove[slot] != nullptr) unlink(filesToRemove[slot]);
  filesToRemove[slot] = nullptr;
}

}  // namespace

TemporaryFolder::TemporaryFolder() : TemporaryFolder(fs::path()) {}

TemporaryFolder::TemporaryFolder(const fs::path& parent) {
  path_ = MakePrivateFolder(parent.empty() ? fs::temp_directory_path(error_) : parent, error_);
  if (!path_.empty()) folderToRemove = path_.c_str();
}

TemporaryFolder::~TemporaryFolder() {
  Remove();
  for (const char* volatile& file : filesToRemove) file = nullptr;
  folderToRemove = nullptr;
}

std::string TemporaryFolder::Error() const {
  return error_ == std::errc::illegal_byte_sequence ? "its path " + NoTextProblem() : ErrorText(error_);
}

const char* TemporaryFolder::Track(size_t slot, const std::string& fileName) {
  Forget(slot);
  filePaths[slot] = path_ + "/" + fileName;
  filesToRemove[slot] = filePaths[slot].c_str();
  return filePaths[slot].c_str();
}

fs::path TemporaryFolder::Use(const std::string& fileName) {
  Forget(1 - current);
  return LocalPath(Track(current, fileName));
}

fs::path TemporaryFolder::UseAnother(const std::string& fileName) { return LocalPath(Track(1 - current, fileName)); }

fs::path TemporaryFolder::Rename(const std::string& fileName, std::error_code& error) {
  fs::path before = LocalPath(filePaths[current]);
  if (filePaths[current] == path_ + "/" + fileName) return before;
  if constexpr (kIsDosHost) {  // a name in other letters only is not taken for a new one everywhere
    const fs::path between = LocalPath(path_ + "/~");
    fs::rename(before, between, error);
    if (error) return before;
    before = between;
  }
  const fs::path after = LocalPath(Track(1 - current, fileName));
  fs::rename(before, after, error);
  if (!error) {
    filesToRemove[current] = nullptr;
    current = 1 - current;
  }
  return LocalPath(filePaths[current]);
}

// Twice, should the library be about to create the file.
void TemporaryFolder::Remove() {
  if (folderToRemove == nullptr) return;
  for (int i = 0; i < 2; ++i) {
    for (const char* const file : filesToRemove) {
      if (file != nullptr) unlink(file);
    }
    if (rmdir(folderToRemove) == 0) return;
  }
}

}  // namespace media_adapter::cli

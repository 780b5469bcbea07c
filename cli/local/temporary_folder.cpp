#include "cli/local/temporary_folder.h"

#include <unistd.h>

#include "cli/local/private_folder.h"

namespace media_adapter::cli {
namespace {

// What a signal handler can reach; null while there is nothing to remove.
const char* volatile folderToRemove = nullptr;
const char* volatile fileToRemove = nullptr;
std::string filePath;

}  // namespace

TemporaryFolder::TemporaryFolder() : TemporaryFolder(std::filesystem::path()) {}

TemporaryFolder::TemporaryFolder(const std::filesystem::path& parent) {
  path_ = MakePrivateFolder(parent.empty() ? std::filesystem::temp_directory_path(error_) : parent, error_);
  if (!path_.empty()) folderToRemove = path_.c_str();
}

TemporaryFolder::~TemporaryFolder() {
  Remove();
  fileToRemove = nullptr;
  folderToRemove = nullptr;
}

std::filesystem::path TemporaryFolder::Use(const std::string& fileName) {
  if (fileToRemove != nullptr) unlink(fileToRemove);
  fileToRemove = nullptr;
  filePath = path_ + "/" + fileName;
  fileToRemove = filePath.c_str();
  return filePath;
}

// Twice, should the library be about to create the file.
void TemporaryFolder::Remove() {
  if (folderToRemove == nullptr) return;
  for (int i = 0; i < 2; ++i) {
    if (fileToRemove != nullptr) unlink(fileToRemove);
    if (rmdir(folderToRemove) == 0) return;
  }
}

}  // namespace media_adapter::cli

#include "cli/temporary_folder.h"

#include <unistd.h>

#include "cli/private_folder.h"

namespace media_adapter::cli {
namespace {

// What a signal handler can reach; null while there is nothing to remove.
const char* volatile folderToRemove = nullptr;
const char* volatile fileToRemove = nullptr;
std::string filePath;

}  // namespace

TemporaryFolder::TemporaryFolder(const std::string& fileName) : path_(MakePrivateFolder()) {
  if (path_.empty()) return;
  filePath = path_ + "/" + fileName;
  fileToRemove = filePath.c_str();
  folderToRemove = path_.c_str();
}

TemporaryFolder::~TemporaryFolder() {
  Remove();
  folderToRemove = nullptr;
}

std::string TemporaryFolder::FilePath() const { return filePath; }

void TemporaryFolder::Remove() {
  if (folderToRemove == nullptr) return;
  unlink(fileToRemove);
  rmdir(folderToRemove);
}

}  // namespace media_adapter::cli

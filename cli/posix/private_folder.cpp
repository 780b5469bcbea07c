#include "cli/private_folder.h"

#include <stdlib.h>

#include <filesystem>

namespace media_adapter::cli {

std::string MakePrivateFolder() {
  std::error_code error;
  std::string pattern = (std::filesystem::temp_directory_path(error) / "media-adapter-XXXXXX").string();
  return error || mkdtemp(pattern.data()) == nullptr ? std::string() : pattern;
}

}  // namespace media_adapter::cli

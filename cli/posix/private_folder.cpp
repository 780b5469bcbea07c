#include "cli/local/private_folder.h"

#include <stdlib.h>

#include <cerrno>

namespace media_adapter::cli {

std::string MakePrivateFolder(const std::filesystem::path& parent, std::error_code& error) {
  std::string pattern = (parent / ".media-adapter-XXXXXX").string();
  if (mkdtemp(pattern.data()) != nullptr) return pattern;
  error.assign(errno, std::generic_category());
  return {};
}

}  // namespace media_adapter::cli

#include "cli/local/local_text.h"

namespace media_adapter::cli {

std::string LocalText(const std::filesystem::path& path) { return path.string(); }

}  // namespace media_adapter::cli

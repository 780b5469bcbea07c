#include "cli/local/local_text.h"

namespace media_adapter::cli {

std::string LocalText(const std::filesystem::path& path) { return path.native(); }
std::optional<std::string> ExactText(const std::filesystem::path& path) { return path.native(); }
std::string NoTextProblem() { return "has bytes that are no text"; }
std::filesystem::path LocalPath(std::string_view text) { return text; }
bool IsShortName(const std::filesystem::path& /*path*/) { return false; }

}  // namespace media_adapter::cli

// Local paths between the tool's own use of them and the library's.
#pragma once

#include <filesystem>
#include <string>

namespace media_adapter::cli {

// The path in the bytes in which the library takes it; path(text) is the way back.
std::string LocalText(const std::filesystem::path& path);

}  // namespace media_adapter::cli

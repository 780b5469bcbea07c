// A folder of the tool's own, inside another one.
#pragma once

#include <filesystem>
#include <string>

namespace media_adapter::cli {

// Makes a new folder in `parent` that nobody but this user can look into. Its path, or "" with `error`.
std::string MakePrivateFolder(const std::filesystem::path& parent, std::error_code& error);

}  // namespace media_adapter::cli

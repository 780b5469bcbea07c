// A folder of the tool's own in the system's folder for temporary files.
#pragma once

#include <string>

namespace media_adapter::cli {

// Makes a new folder that nobody but this user can look into. Its path, or "" when there is none to be had.
std::string MakePrivateFolder();

}  // namespace media_adapter::cli

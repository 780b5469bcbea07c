// Where this user's running programs keep locks and sockets.
#pragma once

#include <string>

namespace media_adapter::cli {

// A folder that belongs to this user and that nobody else can look into; "" when there is none. Made when missing.
std::string RuntimeFolder();

}  // namespace media_adapter::cli

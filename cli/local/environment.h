// What the system hands to the process, in its own form, in which nothing is lost.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace media_adapter::cli {

// Without the program's name; as ExactText takes them.
std::vector<std::filesystem::path> Arguments(int count, char** words);

// Empty when it is not set.
std::filesystem::path Variable(const char* name);

}  // namespace media_adapter::cli

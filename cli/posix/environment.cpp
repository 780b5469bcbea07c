#include "cli/local/environment.h"

#include <cstdlib>

namespace media_adapter::cli {

std::vector<std::filesystem::path> Arguments(int count, char** words) { return {words + 1, words + count}; }

std::filesystem::path Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace media_adapter::cli

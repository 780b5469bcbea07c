#include "cli/local/private_folder.h"

#include <random>

#include "cli/local/local_text.h"

namespace media_adapter::cli {

// A folder takes its rights from the one around it; that for temporary files is the user's own on this system.
std::string MakePrivateFolder(const std::filesystem::path& parent, std::error_code& error) {
  constexpr int kAttempts = 100;
  std::random_device random;
  for (int i = 0; i < kAttempts && !error; ++i) {
    const auto folder = parent / (".media-adapter-" + std::to_string(random()));
    if (std::filesystem::create_directory(folder, error)) return LocalText(folder);
  }
  return {};
}

}  // namespace media_adapter::cli

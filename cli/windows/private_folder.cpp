#include "cli/private_folder.h"

#include <filesystem>
#include <random>

#include "cli/local_text.h"

namespace media_adapter::cli {

// The folder for temporary files is the user's own on this system.
std::string MakePrivateFolder() {
  constexpr int kAttempts = 100;
  std::error_code error;
  const auto parent = std::filesystem::temp_directory_path(error);
  std::random_device random;
  for (int i = 0; i < kAttempts && !error; ++i) {
    const auto folder = parent / ("media-adapter-" + std::to_string(random()));
    if (std::filesystem::create_directory(folder, error)) return LocalText(folder);
  }
  return {};
}

}  // namespace media_adapter::cli

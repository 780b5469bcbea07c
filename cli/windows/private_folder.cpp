#include "cli/local/private_folder.h"

#include <windows.h>

#include <random>

#include "cli/local/local_text.h"

namespace media_adapter::cli {

namespace {

// The path in names of eight and three characters, where the file system gives such names.
std::filesystem::path ShortForm(const std::filesystem::path& path) {
  std::wstring form(GetShortPathNameW(path.c_str(), nullptr, 0), L'\0');
  form.resize(GetShortPathNameW(path.c_str(), form.data(), static_cast<DWORD>(form.size())));
  return form;
}

}  // namespace

// A folder takes its rights from the one around it; that for temporary files is the user's own on this system.
std::string MakePrivateFolder(const std::filesystem::path& parent, std::error_code& error) {
  constexpr int kAttempts = 100;
  std::random_device random;
  for (int i = 0; i < kAttempts && !error; ++i) {
    const auto folder = parent / (L".media-adapter-" + std::to_wstring(random()));
    if (!std::filesystem::create_directory(folder, error)) continue;
    for (const auto& form : {folder, ShortForm(folder)}) {
      if (auto text = ExactText(form); text && !form.empty()) return *text;
    }
    RemoveDirectoryW(folder.c_str());
    error = std::make_error_code(std::errc::illegal_byte_sequence);
  }
  return {};
}

}  // namespace media_adapter::cli

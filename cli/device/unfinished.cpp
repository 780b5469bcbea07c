#include "cli/device/unfinished.h"

#include <algorithm>
#include <fstream>

#include "cli/local/environment.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

// Where programs keep what outlives a run and is no setting; empty when the system does not say.
fs::path StateFolder() {
  if (kIsDosHost) return Variable("LOCALAPPDATA");
  if (fs::path folder = Variable("XDG_STATE_HOME"); folder.is_absolute()) return folder;
  const fs::path home = Variable("HOME");
  return home.empty() ? home : home / LocalPath(".local/state");
}

}  // namespace

UnfinishedNote::UnfinishedNote(std::string_view mac) {
  std::string name(mac);
  std::ranges::replace(name, ':', '-');
  if (const fs::path folder = StateFolder(); !folder.empty())
    path_ = folder / LocalPath("media-adapter/" + name + ".unfinished");
}

void UnfinishedNote::Write(const UnfinishedFile& file) const {
  if (path_.empty()) return;
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  std::ofstream note(path_, std::ios::binary | std::ios::trunc);
  note << file.size;
  for (const uint16_t part : file.time) note << ' ' << part;
  note << ' ' << file.path << '\n';
}

std::optional<UnfinishedFile> UnfinishedNote::Read() const {
  if (path_.empty()) return std::nullopt;
  std::ifstream note(path_, std::ios::binary);
  UnfinishedFile file;
  note >> file.size;
  for (uint16_t& part : file.time) note >> part;
  note.ignore();
  return std::getline(note, file.path) && file.path.starts_with('\\') ? std::optional(file) : std::nullopt;
}

void UnfinishedNote::Remove() const {
  std::error_code error;
  if (!path_.empty()) fs::remove(path_, error);
}

}  // namespace media_adapter::cli

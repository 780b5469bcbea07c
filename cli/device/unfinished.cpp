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

void UnfinishedNote::Write(const Unfinished& change) const {
  if (path_.empty()) return;
  std::error_code error;
  fs::create_directories(path_.parent_path(), error);
  std::ofstream note(path_, std::ios::binary | std::ios::trunc);
  note << static_cast<int>(change.kind) << ' ' << change.size;
  for (const uint16_t part : change.time) note << ' ' << part;
  note << ' ' << change.path << '\n';
}

std::optional<Unfinished> UnfinishedNote::Read() const {
  if (path_.empty()) return std::nullopt;
  std::ifstream note(path_, std::ios::binary);
  Unfinished change;
  int kind = -1;
  note >> kind >> change.size;
  for (uint16_t& part : change.time) note >> part;
  note.ignore();
  if (!std::getline(note, change.path) || !change.path.starts_with('\\')) return std::nullopt;
  if (kind < 0 || kind > static_cast<int>(Unfinished::Kind::Growth)) return std::nullopt;
  change.kind = static_cast<Unfinished::Kind>(kind);
  return change;
}

void UnfinishedNote::Remove() const {
  std::error_code error;
  if (!path_.empty()) fs::remove(path_, error);
}

}  // namespace media_adapter::cli

#include "cli/posix/history_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "cli/posix/descriptor.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

// Empty when the system names no folder.
fs::path HistoryFolder() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && state[0] == '/') return fs::path(state) / "media-adapter";
  const char* const home = std::getenv("HOME");
  return home != nullptr && home[0] == '/' ? fs::path(home) / ".local" / "state" / "media-adapter" : fs::path();
}

std::string HistoryPath() {
  const fs::path folder = HistoryFolder();
  return folder.empty() ? std::string() : (folder / "history").string();
}

Descriptor OpenHistory(const std::string& path, int flags) {
  Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | flags, 0600));
  // A file that was there may be open to others.
  return file.IsOpen() && fchmod(file.Get(), 0600) == 0 ? std::move(file) : Descriptor();
}

bool Write(const Descriptor& file, const std::string& text) {
  return file.IsOpen() && write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Leaves the old file alone unless the new one is whole.
void Shorten(const std::string& path, const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  const std::string newPath = path + ".new";
  if (Write(OpenHistory(newPath, O_TRUNC), text)) std::rename(newPath.c_str(), path.c_str());
}

}  // namespace

std::vector<std::string> ReadHistory() {
  const std::string path = HistoryPath();
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  if (lines.size() <= kHistoryLines) return lines;
  const bool isLong = lines.size() > 2 * kHistoryLines;
  lines.erase(lines.begin(), lines.end() - kHistoryLines);
  if (isLong) Shorten(path, lines);
  return lines;
}

void AddToHistory(const std::string& line) {
  const fs::path folder = HistoryFolder();
  if (folder.empty()) return;
  std::error_code error;
  fs::create_directories(folder.parent_path(), error);
  mkdir(folder.c_str(), 0700);
  Write(OpenHistory(HistoryPath(), O_APPEND), line + '\n');
}

}  // namespace media_adapter::cli

#include "cli/local/defaults.h"

#include <filesystem>
#include <fstream>

#include "cli/console/text.h"
#include "cli/local/environment.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

struct Key {
  const char* name;
  std::string Defaults::*value;
};

constexpr Key kKeys[] = {{"MEDIA_ADAPTER_INTERFACE", &Defaults::interfaceName},
                         {"MEDIA_ADAPTER_DEVICE", &Defaults::device},
                         {"MEDIA_ADAPTER_PASSWORD_FILE", &Defaults::passwordFile}};

// Where the user's settings of programs lie; empty when the system does not say.
fs::path SettingsFolder() {
  if (kIsDosHost) return Variable("APPDATA");
  if (fs::path folder = Variable("XDG_CONFIG_HOME"); !folder.empty()) return folder;
  const fs::path home = Variable("HOME");
  return home.empty() ? home : home / LocalPath(".config");
}

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

bool TakeLine(const std::string& line, Defaults& defaults) {
  const std::string text = Trim(line);
  if (text.empty() || text.starts_with('#')) return true;
  const size_t equals = text.find('=');
  for (const Key& key : kKeys) {
    if (equals == std::string::npos || Trim(text.substr(0, equals)) != key.name) continue;
    defaults.*key.value = Trim(text.substr(equals + 1));
    return true;
  }
  return false;
}

}  // namespace

std::string ReadDefaults(Defaults& defaults) {
  if (const fs::path folder = SettingsFolder(); !folder.empty()) {
    const fs::path path = folder / LocalPath("media-adapter/config");
    std::ifstream file(path);
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
      if (TakeLine(line, defaults)) continue;
      return Escape(LocalText(path)) + ": line " + std::to_string(number) + ": no KEY=VALUE of a known key";
    }
  }
  for (const Key& key : kKeys) {
    std::optional<std::string> value = ExactText(Variable(key.name));
    if (!value) return std::string(key.name) + " " + NoTextProblem();
    if (!value->empty()) defaults.*key.value = std::move(*value);
  }
  return {};
}

}  // namespace media_adapter::cli

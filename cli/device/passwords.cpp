#include "cli/device/passwords.h"

#include <algorithm>

#include "cli/device/device_choice.h"

namespace media_adapter::cli {
namespace {

constexpr size_t kMacLength = 17;

// The password when the line is this device's.
std::optional<std::string> PasswordIn(const std::string& line, const DeviceEntry& device) {
  const std::string name = DeviceName(device) + ":";
  if (line.starts_with(name)) return line.substr(name.size());
  if (line.size() <= kMacLength || line[kMacLength] != ':') return std::nullopt;
  const bool isMac = IsMacOf(device, std::string_view(line).substr(0, kMacLength));
  return isMac ? std::optional(line.substr(kMacLength + 1)) : std::nullopt;
}

}  // namespace

std::string Passwords::Read(std::string_view file) {
  lines_.clear();
  while (!file.empty()) {
    const size_t end = std::min(file.find('\n'), file.size());
    std::string line(file.substr(0, end));
    file.remove_prefix(std::min(end + 1, file.size()));
    if (line.ends_with('\r')) line.pop_back();
    const std::string place = "line " + std::to_string(lines_.size() + 1) + ": ";
    if (line.find('\0') != std::string::npos) return place + "a zero byte in the password";
    lines_.push_back(std::move(line));
  }
  while (lines_.size() > 1 && lines_.back().empty()) lines_.pop_back();
  // Only a line of its own tells whether all of it is the password.
  const bool isWhole = lines_.size() == 1 || (!lines_.empty() && lines_.front().find(':') == std::string::npos);
  if (isWhole && lines_.front().find(':') == std::string::npos && lines_.front().size() > MEDIA_ADAPTER_MAX_PASSWORD) {
    return "the password is longer than " + std::to_string(MEDIA_ADAPTER_MAX_PASSWORD) + " characters";
  }
  common_ = isWhole ? lines_.front() : std::string();
  return {};
}

void Passwords::Remember(const DeviceEntry& device, std::string password) {
  typed_[MacText(device)] = std::move(password);
}

std::string Passwords::For(const DeviceEntry& device) const {
  if (const auto typed = typed_.find(MacText(device)); typed != typed_.end()) return typed->second;
  for (const std::string& line : lines_) {
    if (auto password = PasswordIn(line, device)) return *password;
  }
  return common_;
}

}  // namespace media_adapter::cli

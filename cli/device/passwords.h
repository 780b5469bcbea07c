// The passwords of devices: from a file, and those that a person has typed in this run.
//
// A file holds lines NAME-OR-MAC:PASSWORD, and a first line that is none is the password of all other devices. A file
// of one line is taken as a device's line only where its device is meant.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "api/media_adapter.h"

namespace media_adapter::cli {

class Passwords {
 public:
  // The problem with the file, or "".
  std::string Read(std::string_view file);
  void Remember(const DeviceEntry& device, std::string password);
  // The same for every device that has none of its own.
  void SetCommon(std::string password) { common_ = std::move(password); }

  // "" when nothing is known of the device.
  std::string For(const DeviceEntry& device) const;

 private:
  std::vector<std::string> lines_;
  std::string common_;
  std::map<std::string, std::string> typed_;  // by MAC
};

}  // namespace media_adapter::cli

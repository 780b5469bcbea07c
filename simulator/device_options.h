// What a user says of a device to be played: the --device text and the JSON device file, checked and completed. Used by
// main alone; it opens no image.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/device_model.h"

namespace media_adapter::simulator {

struct DeviceOptions {
  DeviceIdentity identity;
  std::string image;         // path
  bool hasPassword = false;  // one was given, even an empty one
};

// "ADDRESS,NAME,IMAGE[,PASSWORD[,MAC]]"; a backslash takes the character after it as it stands. None with `error` in
// words for a user.
std::optional<DeviceOptions> ParseDevice(const std::string& text, std::string& error);

// Appends the devices of a JSON file: an array of objects with the texts "address", "name", "image" and, if wanted,
// "password" and "mac". False with `error`.
bool ReadDeviceFile(const std::string& path, std::vector<DeviceOptions>& devices, std::string& error);

// The first line of a file, a password of at most 16 bytes. None with `error`.
std::optional<std::string> ReadPassword(const std::string& path, std::string& error);

// Null, or what makes these devices impossible together.
std::optional<std::string> FindConflict(const std::vector<DeviceOptions>& devices);

}  // namespace media_adapter::simulator

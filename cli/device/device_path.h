// Paths on a device's volume: what a person types, made absolute and plain, and taken apart. Inside the tool a path is
// always "\" or "\name\name", as the library wants it, in the bytes of the volume (cli/volume_name.h). People may write
// either separator; printed paths use "/", which no device name holds.
#pragma once

#include <string>
#include <string_view>

namespace media_adapter::cli {

inline constexpr std::string_view kRootPath = "\\";

// `argument` as an absolute path: taken from the root when it starts with a separator, from `folder` otherwise. Empty
// components and "." vanish, ".." takes the parent and stops at the root. The result is not checked for its length.
std::string ResolveDevicePath(std::string_view folder, std::string_view argument);

std::string JoinDevicePath(std::string_view folder, std::string_view name);

struct DevicePathParts {
  std::string folder;
  std::string name;  // empty for the root
};

DevicePathParts SplitDevicePath(std::string_view path);

// The path as it is printed: "/" between the components, each escaped.
std::string DisplayPath(std::string_view path);

// The same for all spellings of a name, or of a path, that are one to the device: letter case of A to Z and trailing
// spaces of a name do not count.
std::string FoldDeviceName(std::string_view path);

}  // namespace media_adapter::cli

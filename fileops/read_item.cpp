// Reading one item of the volume: a directory is listed, a file is copied.
#include <algorithm>

#include "fat/directory_listing.h"
#include "fat/path_lookup.h"
#include "fileops/file_operations.h"
#include "fileops/receive_file.h"
#include "platform/local_files.h"

namespace media_adapter {
namespace {

constexpr char kDeviceSeparator = '\\';

// The path's last name as it is spelled there. Empty for a path that ends in its separator.
std::string LastComponent(const std::string& devicePath) {
  return devicePath.substr(devicePath.rfind(kDeviceSeparator) + 1);
}

// The local file that a copy goes to, or none when folder and name together are too long.
std::optional<std::string> LocalPathFor(const ReadArguments& arguments, const std::string& name) {
  std::string folder = *arguments.localFolder;
  if (platform::EndsInSeparator(folder)) {
    folder.pop_back();
    arguments.trimCallerFolder();
  }
  if (folder.size() + 1 + name.size() > MEDIA_ADAPTER_MAX_PATH) return std::nullopt;
  return folder + platform::HostSeparator() + name;
}

StatusCode ReadFile(const ReadArguments& arguments, const FoundEntry& item) {
  const auto& folder = arguments.localFolder;
  if (!folder || folder->empty() || folder->size() > MEDIA_ADAPTER_MAX_PATH) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;

  const Progress progress(arguments.progress);
  const std::string name = LastComponent(arguments.devicePath);
  const auto localPath = LocalPathFor(arguments, name);
  if (!localPath) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;
  // A separator in a name that the device gave would lead out of the folder.
  if (std::ranges::any_of(name, platform::IsHostSeparator)) return MEDIA_ADAPTER_INVALID_PATH;
  return ReceiveFile(*localPath, item.firstCluster, item.size, progress);
}

}  // namespace

StatusCode ReadDeviceItem(const ReadArguments& arguments, bool& isListing) {
  const FoundEntry item = LookupPath(arguments.devicePath);
  isListing = item.status == MEDIA_ADAPTER_OK && !item.isFile;
  if (item.status != MEDIA_ADAPTER_OK) return item.status;
  return isListing ? ListDirectory(item.firstCluster) : ReadFile(arguments, item);
}

}  // namespace media_adapter

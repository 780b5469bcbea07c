// The operations on the device's volume that the file requests run once access is open and the volume is mounted. Each
// returns 0, a status of its own as it says, or the status of the exchange that failed; nothing is rolled back.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "protocol/status_code.h"

namespace media_adapter {

// Called when the operation wants the trailing separator taken off the caller's own folder text.
using TrimRequest = std::function<void()>;

struct ReadArguments {
  std::string devicePath;
  std::optional<std::string> localFolder;  // needed for a file only
  uint32_t* progress = nullptr;            // percent; the caller's, or null
  TrimRequest trimCallerFolder;
};

// Lists a directory into directoryListing, with isListing true, or copies a file into the local folder. Returns 242,
// 243 or 244 of its own. A local file that a failed copy leaves behind is incomplete.
StatusCode ReadDeviceItem(const ReadArguments& arguments, bool& isListing);

// Copies a local file into the device's folder under its own name, over a file of that name. Returns 238, 239, 240,
// 243, 244 or 249 of its own. The old content of an overwritten file is free before the new one is there.
StatusCode StoreLocalFile(const std::string& localPath, std::string deviceFolder, const TrimRequest& trimCallerFolder);

// Deletes a file. Returns 241 (a directory) or 244 of its own.
StatusCode DeleteDeviceFile(const std::string& devicePath);

// Creates an empty directory in an existing one. Returns 236, 238, 239, 244 or 249 of its own.
StatusCode MakeDirectory(const std::string& devicePath);

// Clears the FAT and the root directory. Returns 251 of its own for a volume that holds no cluster, nothing written.
StatusCode FormatVolume();

}  // namespace media_adapter

// Commands that may work on several devices, one after another.
#pragma once

#include <functional>

#include "cli/commands/table.h"

namespace media_adapter::cli {

// Runs the command for the one device that is meant, or for each of several: what it prints says which then, one that
// fails does not stop the others, and the code is that of the first failure.
int ForEachDevice(const Context& context, const std::function<int()>& run);

// The name of a local file or folder for the device that is being worked on; "" when there is only one.
std::string DeviceFolderName(const Context& context);

}  // namespace media_adapter::cli

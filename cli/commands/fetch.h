// One file of the device on its way to this machine: to stay here, or for a moment only, before it goes to standard
// output or back to the device.
#pragma once

#include <optional>
#include <string>

#include "cli/commands/table.h"

namespace media_adapter::cli {

// Copies one file into a folder that is there, under the path's last name. Ok when it has the size that is listed.
Answer FetchFile(const Context& context, const std::string& path, const std::string& localFolder,
                 const std::optional<ListingEntry>& entry);

// As above, with a progress bar of its own.
Answer FetchFileShown(const Context& context, const std::string& path, const std::string& localFolder,
                      const std::optional<ListingEntry>& entry);

// Prints a file of the device on standard output. An exit code.
int GetToOutput(const Context& context, const std::string& command, const std::string& path);

}  // namespace media_adapter::cli

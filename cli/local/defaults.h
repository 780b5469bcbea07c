// What holds where an option is not given: variables of the environment, and below them the same keys in the user's
// configuration file, lines KEY=VALUE and comments (#...).
#pragma once

#include <string>

namespace media_adapter::cli {

struct Defaults {
  std::string interfaceName;  // MEDIA_ADAPTER_INTERFACE
  std::string device;         // MEDIA_ADAPTER_DEVICE
  std::string passwordFile;   // MEDIA_ADAPTER_PASSWORD_FILE
};

// The problem with the file, or "". A file that is not there is none.
std::string ReadDefaults(Defaults& defaults);

}  // namespace media_adapter::cli

// Who a request goes to and as whom: the values that every request of one call carries, and the storage geometry that
// the device reported when access to it was opened.
#pragma once

#include <cstdint>
#include <string>

namespace media_adapter {

struct SessionValues {
  uint8_t requestTag = 0;  // only the two low bits travel
  std::string password;    // at most 16 characters
  uint32_t device = 0;     // index into the device table
};

struct SessionInfo {
  uint32_t lastSector = 0;        // the highest sector that may be addressed
  uint32_t deviceSectorSize = 0;  // bytes
};

// Set by an accepted reply to RFAConnect, kept until the next one.
extern SessionInfo sessionInfo;

}  // namespace media_adapter

// Copying one file from the device: streamed in numbered packets, acknowledged by threes, each written at its own
// place.
#pragma once

#include <cstdint>
#include <string>

#include "protocol/status_code.h"

namespace media_adapter {

// The progress that a caller sees, if it wants to see any.
class Progress {
 public:
  explicit Progress(uint32_t* value) : value_(value) {}
  // percent: 0 to 100.
  void Set(uint32_t percent) const;
  void Set(uint64_t done, uint64_t size) const { Set(static_cast<uint32_t>(done * 100 / size)); }

 private:
  uint32_t* value_;
};

// Copies the `size` bytes of the chain from `firstCluster` on into the local file `localPath`, which is created or
// truncated. Returns 0 for a whole file; 244 when it cannot be created or written; 251, 253 or a device's status, with
// the part that came left in the file.
StatusCode ReceiveFile(const std::string& localPath, uint32_t firstCluster, uint32_t size, const Progress& progress);

}  // namespace media_adapter

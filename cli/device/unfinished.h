// The file that is being written to a device, noted on this machine for as long as it is. A run that is killed then, or
// a device that dies, may leave an entry of the right size and time whose space counts as free; the next run knows of
// it by the note, deletes it before it writes anything, and never takes it for a good copy.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "cli/device/comparison.h"

namespace media_adapter::cli {

struct UnfinishedFile {
  std::string path;  // on the device
  uint64_t size = 0;
  WallTime time{};
};

class UnfinishedNote {
 public:
  // mac: the device's hardware address as text.
  explicit UnfinishedNote(std::string_view mac);

  // Without a place for it there is no note, and nothing else changes.
  void Write(const UnfinishedFile& file) const;
  std::optional<UnfinishedFile> Read() const;
  void Remove() const;

 private:
  std::filesystem::path path_;
};

}  // namespace media_adapter::cli

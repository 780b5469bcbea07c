// The change that is being made to a device's volume, noted on this machine for as long as it is. A run that is killed
// then, or a device that dies, may leave something whose space counts as free, so that what is written next would share
// it. The next run knows of it by the note.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "cli/device/comparison.h"

namespace media_adapter::cli {

struct Unfinished {
  enum class Kind : uint8_t {
    File,    // an entry, which may have the right size and time
    Folder,  // a new one that may hold what its space held before
    Volume,  // cleared in part: files that are listed, and no more than that
    Growth,  // of a folder, which may list what its new space held before
  };
  Kind kind = Kind::File;
  std::string path;   // on the device; the root for a volume
  uint64_t size = 0;  // of a file
  WallTime time{};    // of a file; for a folder, when its making began
};

class UnfinishedNote {
 public:
  // mac: the device's hardware address as text.
  explicit UnfinishedNote(std::string_view mac);

  // Without a place for it there is no note, and nothing else changes.
  void Write(const Unfinished& change) const;
  std::optional<Unfinished> Read() const;
  void Remove() const;

 private:
  std::filesystem::path path_;
};

}  // namespace media_adapter::cli

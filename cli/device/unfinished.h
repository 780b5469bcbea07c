// A change of a device's volume, and what it leaves behind when it does not come to its end: something whose space may
// count as free, so that what is written next would share it. While it is being made the change is noted on this
// machine, so that the run after one that was killed knows of it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "cli/console/output.h"
#include "cli/device/comparison.h"

namespace media_adapter::cli {

class Session;

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

// What may be left, and what has to be done about it.
std::string HowToMend(const Unfinished& change);

// Looks on the chosen device whether what such a change leaves behind is there, be it under a part of its name: the
// path is that of what was found then. What another hand has stored or mended since is none of it. Not ok when the
// device does not tell.
Answer LookFor(Session& session, Unfinished& change, bool& isThere);

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

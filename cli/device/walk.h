// The one way through a device's folders: for every command that works on all that is below one. However damaged the
// volume is, a walk ends: each folder is entered once, and no path gets longer than the library takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/device/session.h"

namespace media_adapter::cli {

struct WalkItem {
  const std::string& path;
  const ListingEntry& entry;
  size_t depth = 0;     // 1 for what is in the first folder
  bool isLast = false;  // of its folder
};

class WalkVisitor {
 public:
  virtual ~WalkVisitor() = default;
  // A folder has been listed. May put its rows, "." and ".." among them, into another order, and take some out.
  virtual void Enter(const std::string& /*path*/, std::vector<ListingEntry>& /*entries*/) {}
  // Each row but "." and "..". True to go into it when it is a folder.
  virtual bool Visit(const WalkItem& item) = 0;
  // After all that is in a folder that was gone into.
  virtual void Leave(const WalkItem& /*item*/) {}
  // What cannot be gone into, or has no path that leads to it alone.
  virtual void Fail(const std::string& path, const Answer& answer) = 0;
};

// listing: of `folder`, which was asked for before. Nothing happens when it is none. Stops at an interrupt, and at a
// failure that lies with the device.
void Walk(Session& session, const std::string& folder, Listing listing, WalkVisitor& visitor);

}  // namespace media_adapter::cli

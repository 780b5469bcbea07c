// What the shell's Tab key offers for the word before the cursor: commands, then names on the device or, for "put",
// local ones.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/commands/table.h"

namespace media_adapter::cli {

struct Completion {
  size_t start = 0;                     // of the word in the line
  std::string replacement;              // for the line from `start` on; empty when there is nothing to add
  std::vector<std::string> candidates;  // when several go on differently: what to show, escaped
};

// line: up to the cursor. Lists one folder of the device when a device has been chosen already.
Completion Complete(std::string_view line, Context& context);

}  // namespace media_adapter::cli

// Patterns for paths on a device, taken apart into the paths that they stand for.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/device/session.h"

namespace media_adapter::cli {

using OnFailure = std::function<void(const std::string& path, const Answer& answer)>;

// pattern: an absolute device path, with the marks of cli/console/wildcards.h. The paths come in order. A pattern that
// nothing matches gives itself, and so does a plain path, of which nothing is asked: whatever is done with it then
// tells that there is no such thing. fail: called for each folder that could not be looked through.
std::vector<std::string> MatchingPaths(Session& session, std::string_view pattern, const OnFailure& fail);

}  // namespace media_adapter::cli

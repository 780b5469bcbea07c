// The name under which a folder holds a file. On a mount that ignores letter case a text finds files that are spelled
// otherwise; they are stored on a device as their folder spells them. Used by FindLocalFile.
#pragma once

#include <sys/stat.h>

#include <string>

namespace media_adapter::platform {

// The last name of `path`, which found `file`, as the folder spells it: the very name where there is such an entry,
// otherwise the entry that is this file, one that differs in letter case alone before any other.
std::string StoredName(const std::string& path, const struct stat& file);

}  // namespace media_adapter::platform

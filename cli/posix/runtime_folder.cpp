#include "cli/posix/runtime_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace media_adapter::cli {

std::string RuntimeFolder() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const std::string folder = runtime != nullptr && runtime[0] == '/' ? std::string(runtime) + "/media-adapter"
                                                                     : "/tmp/media-adapter-" + std::to_string(getuid());
  mkdir(folder.c_str(), 0700);
  struct stat status {};
  const bool isOwn = lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == getuid();
  return isOwn && (status.st_mode & 077) == 0 ? folder : std::string();
}

}  // namespace media_adapter::cli

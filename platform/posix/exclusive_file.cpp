#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/raw_file.h"

namespace media_adapter::platform {

FileHandle OpenExclusively(const std::string& path, std::error_code& error) {
  error.clear();
  const int handle = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
  if (handle < 0) {
    error.assign(errno, std::system_category());
    return kNoFile;
  }
  struct stat status {};
  const bool isRegular = fstat(handle, &status) == 0 && S_ISREG(status.st_mode);
  if (isRegular && flock(handle, LOCK_EX | LOCK_NB) == 0) return handle;
  if (isRegular) {
    error = errno == EWOULDBLOCK ? make_error_code(std::errc::device_or_resource_busy)
                                 : std::error_code(errno, std::system_category());
  }
  CloseFile(handle);
  return kNoFile;
}

}  // namespace media_adapter::platform

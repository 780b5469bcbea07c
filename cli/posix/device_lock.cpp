// Two files, each locked whole: one in the user's run-time folder, and one for all users of the machine where the
// system lets everybody create one. The system drops both locks when the process ends, however it ends.
#include "cli/device/device_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "cli/console/interrupts.h"
#include "cli/posix/runtime_folder.h"

namespace media_adapter::cli {
namespace {

constexpr const char* kMachineFolder = "/run/lock";

// To lock a file it is enough to be allowed to read it, whoever made it.
int OpenLockFile(const std::string& path) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  const int created = open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0644);
  if (created < 0) return open(path.c_str(), kFlags);
  fchmod(created, 0644);
  return created;
}

bool LockFile(int file, bool isWaiting) {
  int result = 0;
  do {
    result = flock(file, LOCK_EX | (isWaiting ? 0 : LOCK_NB));
  } while (result != 0 && errno == EINTR && !IsInterrupted());
  return result == 0 || (errno != EWOULDBLOCK && errno != EINTR);
}

}  // namespace

struct DeviceLock::Impl {
  explicit Impl(std::string name) {
    std::ranges::replace(name, ':', '-');
    const std::string user = RuntimeFolder();
    if (!user.empty()) files[0] = OpenLockFile(user + "/" + name + ".lock");
    files[1] = OpenLockFile(std::string(kMachineFolder) + "/media-adapter-" + name + ".lock");
  }
  ~Impl() {
    for (const int file : files) {
      if (file >= 0) close(file);
    }
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  std::array<int, 2> files = {-1, -1};
};

DeviceLock::DeviceLock(std::string_view mac) : impl_(std::make_unique<Impl>(std::string(mac))) {}
DeviceLock::~DeviceLock() = default;
DeviceLock::DeviceLock(DeviceLock&&) noexcept = default;
DeviceLock& DeviceLock::operator=(DeviceLock&&) noexcept = default;

bool DeviceLock::Take(bool isWaiting) {
  return std::ranges::all_of(impl_->files, [=](int file) { return file < 0 || LockFile(file, isWaiting); });
}

}  // namespace media_adapter::cli

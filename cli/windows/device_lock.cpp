// A named mutex of all sessions of the machine. The system gives it free when the process ends, however it ends.
#include "cli/device/device_lock.h"

#include <windows.h>

#include <algorithm>

namespace media_adapter::cli {

struct DeviceLock::Impl {
  explicit Impl(std::string name) {
    std::ranges::replace(name, ':', '-');
    mutex = CreateMutexA(nullptr, FALSE, ("Global\\media-adapter-" + name).c_str());
  }
  ~Impl() {
    if (isHeld) ReleaseMutex(mutex);
    if (mutex != nullptr) CloseHandle(mutex);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  HANDLE mutex = nullptr;
  bool isHeld = false;
};

DeviceLock::DeviceLock(std::string_view mac) : impl_(std::make_unique<Impl>(std::string(mac))) {}
DeviceLock::~DeviceLock() = default;
DeviceLock::DeviceLock(DeviceLock&&) noexcept = default;
DeviceLock& DeviceLock::operator=(DeviceLock&&) noexcept = default;

bool DeviceLock::Take(bool isWaiting) {
  if (impl_->mutex == nullptr || impl_->isHeld) return true;
  impl_->isHeld = WaitForSingleObject(impl_->mutex, isWaiting ? INFINITE : 0) != WAIT_TIMEOUT;
  return impl_->isHeld;
}

}  // namespace media_adapter::cli

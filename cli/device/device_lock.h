// One program at a time on a device: a lock that every run of the tool takes before it copies from or changes a volume.
// Programs that use the library by themselves know nothing of it.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace media_adapter::cli {

class DeviceLock {
 public:
  // mac: the device's hardware address as text.
  explicit DeviceLock(std::string_view mac);
  ~DeviceLock();
  DeviceLock(DeviceLock&&) noexcept;
  DeviceLock& operator=(DeviceLock&&) noexcept;

  // True once the lock is held; false at once, or when `isWaiting` after an interrupt, when another run holds it. Where
  // the system gives no place for a lock there is nothing to wait for.
  bool Take(bool isWaiting);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace media_adapter::cli

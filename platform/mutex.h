// A mutex that holds nothing of the system: it needs no destruction, so one may be left as it is when the library is
// unloaded or the process ends. Usable with std::lock_guard.
#pragma once

#if !defined(_WIN32)
#include <mutex>
#endif

namespace media_adapter::platform {

#if defined(_WIN32)
// The standard one takes memory, a handle and an index of thread-local storage, and gives none of them back.
class Mutex {
 public:
  constexpr Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock();
  void unlock();

 private:
  void* state_ = nullptr;  // the system's
};
#else
using Mutex = std::mutex;
#endif

}  // namespace media_adapter::platform

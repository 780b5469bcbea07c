#include "platform/mutex.h"

#include <type_traits>

#include "platform/windows/system.h"

namespace media_adapter::platform {
namespace {

static_assert(sizeof(SRWLOCK) == sizeof(void*) && std::is_trivially_destructible_v<Mutex>);

SRWLOCK* SystemLock(void*& state) { return reinterpret_cast<SRWLOCK*>(&state); }

}  // namespace

void Mutex::lock() { AcquireSRWLockExclusive(SystemLock(state_)); }

void Mutex::unlock() { ReleaseSRWLockExclusive(SystemLock(state_)); }

}  // namespace media_adapter::platform

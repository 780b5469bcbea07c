// This object is made when the library is loaded, and destroyed when it is unloaded or the process exits. Whatever the
// library made on first use is destroyed after it.
#include "platform/load_hook.h"

namespace media_adapter::platform {
namespace {

struct LoadHook {
  LoadHook() { OnLibraryLoaded(); }
  ~LoadHook() { OnLibraryUnloaded(); }
  LoadHook(const LoadHook&) = delete;
  LoadHook& operator=(const LoadHook&) = delete;
};

const LoadHook loadHook;

}  // namespace

// Unloading holds nothing that the start needs.
void AllowUnloading(bool (*)()) {}

}  // namespace media_adapter::platform

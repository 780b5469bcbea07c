// Ties the library's life to its loading: this object is made when the library is loaded and destroyed when it is
// unloaded or the process exits. Whatever StartLibrary made on first use is destroyed after it.
#include "worker/library.h"

namespace media_adapter {
namespace {

struct LoadHook {
  LoadHook() { StartLibrary(); }
  ~LoadHook() { StopLibrary(); }
  LoadHook(const LoadHook&) = delete;
  LoadHook& operator=(const LoadHook&) = delete;
};

const LoadHook loadHook;

}  // namespace
}  // namespace media_adapter

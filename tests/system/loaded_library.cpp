#include "tests/system/loaded_library.h"

#include <stdexcept>
#include <utility>

#include "tests/system/platform.h"

namespace media_adapter::system_tests {

std::string LoadedLibrary::Path() { return MEDIA_ADAPTER_LIBRARY; }

LoadedLibrary::LoadedLibrary() : handle_(OpenLibrary(Path())) {
  if (SetIpInterface("127.0.0.1") != MEDIA_ADAPTER_OK) throw std::runtime_error("no loopback network");
}

LoadedLibrary::Symbol LoadedLibrary::Find(const char* name) const {
  void* const address = handle_ == nullptr ? nullptr : FindSymbol(handle_, name);
  if (address == nullptr) throw std::runtime_error(std::string(name) + " is not to be had from " + Path());
  return {address};
}

void LoadedLibrary::Unload() {
  if (handle_ != nullptr) CloseLibrary(std::exchange(handle_, nullptr));
}

}  // namespace media_adapter::system_tests

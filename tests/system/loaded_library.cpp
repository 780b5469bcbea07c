#include "tests/system/loaded_library.h"

#include <stdexcept>
#include <utility>

#include "tests/system/platform.h"

namespace media_adapter::system_tests {
namespace {

template <class Function>
void Resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(FindSymbol(library, name));
  if (function == nullptr) throw std::runtime_error(std::string(name) + " is not exported");
}

}  // namespace

std::string LoadedLibrary::Path() { return MEDIA_ADAPTER_LIBRARY; }

LoadedLibrary::LoadedLibrary() : handle_(OpenLibrary(Path())) {
  if (handle_ == nullptr) throw std::runtime_error(Path() + " cannot be loaded");
#define MEDIA_ADAPTER_RESOLVE(name) Resolve(handle_, "API_" #name, name);
  MEDIA_ADAPTER_EXPORTS(MEDIA_ADAPTER_RESOLVE)
#undef MEDIA_ADAPTER_RESOLVE
  if (SetIpInterface("127.0.0.1") != MEDIA_ADAPTER_OK) throw std::runtime_error("no loopback network");
}

void LoadedLibrary::Unload() {
  if (handle_ != nullptr) CloseLibrary(std::exchange(handle_, nullptr));
}

}  // namespace media_adapter::system_tests

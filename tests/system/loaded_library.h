// The built library, loaded at run time as an application of any language would do it, and its exports by name.
#pragma once

#include <string>

#include "api/media_adapter.h"

namespace media_adapter::system_tests {

#define MEDIA_ADAPTER_EXPORTS(X)                                                                                      \
  X(Search)                                                                                                           \
  X(GetConfiguration) X(SetIPConfiguration) X(SetConfiguration) X(SetTest) X(RFAConnect) X(RFAReadData)               \
      X(RFAReadDataExt) X(RFADelete) X(RFAWriteData) X(RFAFormat) X(RFACreateDirectory) X(RFADisconnect) X(Terminate) \
          X(SetIpInterface)

class LoadedLibrary {
 public:
  // Throws when it cannot be loaded, an export is missing, or it cannot be bound to this machine's own network.
  LoadedLibrary();
  ~LoadedLibrary() { Unload(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  void Unload();

  static std::string Path();

#define MEDIA_ADAPTER_MEMBER(name) decltype(&::API_##name) name = nullptr;
  MEDIA_ADAPTER_EXPORTS(MEDIA_ADAPTER_MEMBER)
#undef MEDIA_ADAPTER_MEMBER

 private:
  void* handle_ = nullptr;
};

}  // namespace media_adapter::system_tests

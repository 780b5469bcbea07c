// The built library, loaded at run time as an application of any language would do it, and its exports by name.
#pragma once

#include <string>

#include "api/media_adapter.h"

namespace media_adapter::system_tests {

class LoadedLibrary {
 private:
  struct Symbol {
    void* address;
    template <class Function>
    operator Function*() const {
      return reinterpret_cast<Function*>(address);
    }
  };
  Symbol Find(const char* name) const;  // throws when it is not exported

  void* handle_;

 public:
  // Throws when it cannot be loaded or bound to this machine's own network.
  LoadedLibrary();
  ~LoadedLibrary() { Unload(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  void Unload();
  static std::string Path();

  decltype(&API_Search) Search = Find("API_Search");
  decltype(&API_GetConfiguration) GetConfiguration = Find("API_GetConfiguration");
  decltype(&API_SetIPConfiguration) SetIPConfiguration = Find("API_SetIPConfiguration");
  decltype(&API_SetConfiguration) SetConfiguration = Find("API_SetConfiguration");
  decltype(&API_SetTest) SetTest = Find("API_SetTest");
  decltype(&API_RFAConnect) RFAConnect = Find("API_RFAConnect");
  decltype(&API_RFAReadData) RFAReadData = Find("API_RFAReadData");
  decltype(&API_RFAReadDataExt) RFAReadDataExt = Find("API_RFAReadDataExt");
  decltype(&API_RFADelete) RFADelete = Find("API_RFADelete");
  decltype(&API_RFAWriteData) RFAWriteData = Find("API_RFAWriteData");
  decltype(&API_RFAFormat) RFAFormat = Find("API_RFAFormat");
  decltype(&API_RFACreateDirectory) RFACreateDirectory = Find("API_RFACreateDirectory");
  decltype(&API_RFADisconnect) RFADisconnect = Find("API_RFADisconnect");
  decltype(&API_Terminate) Terminate = Find("API_Terminate");
  decltype(&API_SetIpInterface) SetIpInterface = Find("API_SetIpInterface");
};

}  // namespace media_adapter::system_tests

// The built library, loaded at run time as an application of any language would do it, and its exports by name. Each
// operating system has its own file behind it.
//
// Every test runs beside simulated devices, started by with_devices.sh as this folder's CMakeLists.txt says: names,
// addresses and faults stand there. Each suite has addresses of its own, since they run side by side.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include "api/media_adapter.h"

namespace media_adapter::system_tests {

inline constexpr const char* kPassword = "secret";  // every device's

class LoadedLibrary {
 private:
  struct Symbol {
    void* address;
    template <class Function>
    operator Function*() const {
      return reinterpret_cast<Function*>(address);
    }
  };
  static void* Load();                        // null when it cannot be loaded
  void* FindAddress(const char* name) const;  // null when it is not exported
  Symbol Find(const char* name) const {
    void* const address = handle_ == nullptr ? nullptr : FindAddress(name);
    return address != nullptr ? Symbol{address} : throw std::runtime_error(std::string("no ") + name);
  }

  void* handle_ = Load();

 public:
  // Throws when it cannot be loaded or bound to this machine's own network, for which `isCalled`.
  explicit LoadedLibrary(bool isCalled = true) {
    if (isCalled && SetIpInterface("127.0.0.1") != MEDIA_ADAPTER_OK) throw std::runtime_error("no loopback network");
  }
  ~LoadedLibrary() { Unload(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  void Unload();
  static size_t WritableBytes();  // of its segments; 0 while it is not loaded

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

// What this process holds of the system.
size_t AllocatedBytes();
size_t OpenHandles();
size_t ThreadLocalIndices();  // that are still to be had

}  // namespace media_adapter::system_tests

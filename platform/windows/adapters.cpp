#include "platform/adapters.h"

#include <algorithm>
#include <memory>
#include <new>

#include "platform/windows/system.h"

namespace media_adapter::platform {

MacAddress FirstAdapterAddress() {
  MacAddress mac{};
  ULONG size = 0;
  if (GetAdaptersInfo(nullptr, &size) != ERROR_BUFFER_OVERFLOW) return mac;
  const std::unique_ptr<IP_ADAPTER_INFO[]> adapters(new (std::nothrow)
                                                        IP_ADAPTER_INFO[size / sizeof(IP_ADAPTER_INFO) + 1]{});
  if (!adapters || GetAdaptersInfo(adapters.get(), &size) != ERROR_SUCCESS) return mac;
  for (const IP_ADAPTER_INFO* adapter = adapters.get(); adapter != nullptr; adapter = adapter->Next) {
    if (adapter->Type == MIB_IF_TYPE_LOOPBACK || adapter->AddressLength != mac.size()) continue;
    std::copy_n(adapter->Address, mac.size(), mac.begin());
    break;
  }
  return mac;
}

}  // namespace media_adapter::platform

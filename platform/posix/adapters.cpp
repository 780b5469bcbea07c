#include "platform/adapters.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>

namespace media_adapter::platform {

MacAddress FirstAdapterAddress() {
  MacAddress mac{};
  ifaddrs* adapters = nullptr;
  if (getifaddrs(&adapters) != 0) return mac;
  for (const ifaddrs* adapter = adapters; adapter != nullptr; adapter = adapter->ifa_next) {
    if (adapter->ifa_addr == nullptr || adapter->ifa_addr->sa_family != AF_PACKET) continue;
    if ((adapter->ifa_flags & IFF_LOOPBACK) != 0) continue;
    const auto* link = reinterpret_cast<const sockaddr_ll*>(adapter->ifa_addr);
    if (link->sll_halen != mac.size()) continue;
    std::copy_n(link->sll_addr, mac.size(), mac.begin());
    break;
  }
  freeifaddrs(adapters);
  return mac;
}

}  // namespace media_adapter::platform

#include "cli/device/interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <array>

namespace media_adapter::cli {

std::vector<LocalInterface> LocalInterfaces() {
  std::vector<LocalInterface> interfaces, loopbacks;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return interfaces;
  for (const ifaddrs* item = list; item != nullptr; item = item->ifa_next) {
    if (item->ifa_addr == nullptr || item->ifa_addr->sa_family != AF_INET || (item->ifa_flags & IFF_UP) == 0) continue;
    std::array<char, INET_ADDRSTRLEN> text = {};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(item->ifa_addr)->sin_addr, text.data(), text.size());
    const bool isLoopback = (item->ifa_flags & IFF_LOOPBACK) != 0;
    (isLoopback ? loopbacks : interfaces).push_back({item->ifa_name, text.data()});
  }
  freeifaddrs(list);
  interfaces.insert(interfaces.end(), loopbacks.begin(), loopbacks.end());
  return interfaces;
}

}  // namespace media_adapter::cli

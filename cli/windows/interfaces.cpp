#include "cli/device/interfaces.h"

#include <winsock2.h>
// After winsock2.h, which it needs.
#include <iphlpapi.h>

#include <cstdint>

#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

std::string AddressText(const SOCKADDR* address) {
  const auto* const octets = reinterpret_cast<const uint8_t*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr);
  std::string text;
  for (int i = 0; i < 4; ++i) text.append(i > 0 ? "." : "").append(std::to_string(octets[i]));
  return text;
}

}  // namespace

std::vector<LocalInterface> LocalInterfaces() {
  constexpr ULONG kFlags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
  std::vector<LocalInterface> interfaces, loopbacks;
  std::vector<uint64_t> buffer(8192);  // aligned for the records
  auto size = static_cast<ULONG>(buffer.size() * sizeof buffer[0]);
  auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
  if (GetAdaptersAddresses(AF_INET, kFlags, nullptr, adapter, &size) != ERROR_SUCCESS) return interfaces;
  for (; adapter != nullptr; adapter = adapter->Next) {
    if (adapter->OperStatus != IfOperStatusUp) continue;
    for (auto* address = adapter->FirstUnicastAddress; address != nullptr; address = address->Next) {
      const bool isLoopback = adapter->IfType == IF_TYPE_SOFTWARE_LOOPBACK;
      (isLoopback ? loopbacks : interfaces)
          .push_back({LocalText(adapter->FriendlyName), AddressText(address->Address.lpSockaddr)});
    }
  }
  interfaces.insert(interfaces.end(), loopbacks.begin(), loopbacks.end());
  return interfaces;
}

}  // namespace media_adapter::cli

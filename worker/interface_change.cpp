#include "worker/interface_change.h"

#include <algorithm>
#include <cstdlib>

#include "api/media_adapter.h"
#include "protocol/channel.h"
#include "worker/device_socket_setup.h"

namespace media_adapter {
namespace {

constexpr long kMaxOctet = 255;

}  // namespace

uint32_t ParseInterfaceAddress(const std::optional<std::string>& text, Octets& octets) {
  octets = {};
  if (!text) return MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS;
  if (text->empty()) return MEDIA_ADAPTER_OK;
  if (std::ranges::count(*text, '.') != 3) return MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS;
  const char* part = text->c_str();
  for (int& octet : octets) {
    // A part without digits is 0; strtol stops at the dot and saturates where atoi would overflow.
    const long value = std::strtol(part, nullptr, 10);
    if (value < 0 || value > kMaxOctet) return MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS;
    octet = static_cast<int>(value);
    part = std::find(part, text->c_str() + text->size(), '.') + 1;
  }
  return MEDIA_ADAPTER_OK;
}

uint32_t ChangeInterface(const std::optional<std::string>& text) {
  Octets wanted{};
  if (const uint32_t status = ParseInterfaceAddress(text, wanted); status != MEDIA_ADAPTER_OK) return status;
  auto& [queue, socket] = WorkerChannel();
  const auto current = socket.LocalEndpoint();
  if (current && std::ranges::equal(current->address, wanted)) return MEDIA_ADAPTER_OK;
  queue.Watch(nullptr);
  socket.Close();
  const uint32_t status = CreateDeviceSocket(socket, text->empty() ? nullptr : text->c_str(), false);
  queue.Watch(&socket);
  return status;
}

}  // namespace media_adapter

#include "worker/interface_change.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "api/media_adapter.h"
#include "protocol/channel.h"
#include "worker/device_socket_setup.h"

namespace media_adapter {
namespace {

constexpr long kMaxOctet = 255;

using Octets = std::array<int, 4>;

// Four decimal numbers of 0 to 255 between exactly three dots, each read from the start of its part: "10.0.0.x" is
// 10.0.0.0. The empty text is 0.0.0.0. None for anything else, a null text as well.
std::optional<Octets> ParseAddress(const std::optional<std::string>& text) {
  Octets octets{};
  if (!text) return std::nullopt;
  if (text->empty()) return octets;
  if (std::ranges::count(*text, '.') != 3) return std::nullopt;
  const char* part = text->c_str();
  for (int& octet : octets) {
    // A part without digits is 0; strtol stops at the dot and saturates where atoi would overflow.
    const long value = std::strtol(part, nullptr, 10);
    if (value < 0 || value > kMaxOctet) return std::nullopt;
    octet = static_cast<int>(value);
    part = std::find(part, text->c_str() + text->size(), '.') + 1;
  }
  return octets;
}

}  // namespace

uint32_t ChangeInterface(const std::optional<std::string>& text) {
  const std::optional<Octets> wanted = ParseAddress(text);
  if (!wanted) return MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS;
  auto& [queue, socket] = WorkerChannel();
  const auto current = socket.LocalEndpoint();
  if (current && std::ranges::equal(current->address, *wanted)) return MEDIA_ADAPTER_OK;
  queue.Watch(nullptr);
  socket.Close();
  const uint32_t status = CreateDeviceSocket(socket, text->empty() ? nullptr : text->c_str(), false);
  queue.Watch(&socket);
  return status;
}

}  // namespace media_adapter

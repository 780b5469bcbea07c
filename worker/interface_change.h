// The choice of the local network interface: the handler of API_SetIpInterface, and how it reads addresses.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace media_adapter {

using Octets = std::array<int, 4>;

// Four decimal numbers of 0 to 255 between exactly three dots, each read from the start of its part: "10.0.0.x" is
// 10.0.0.0. The empty text is 0.0.0.0. Returns 0, or MEDIA_ADAPTER_INVALID_INTERFACE_ADDRESS (a null text as well).
uint32_t ParseInterfaceAddress(const std::optional<std::string>& text, Octets& octets);

// Binds the worker's socket to `text` unless it is bound there already. Returns the call's result: 0, 10 (nothing
// changed) or 11 (there is no socket now).
uint32_t ChangeInterface(const std::optional<std::string>& text);

}  // namespace media_adapter

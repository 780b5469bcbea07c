// The choice of the local network interface: the handler of API_SetIpInterface.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace media_adapter {

// Binds the worker's socket to `text` unless it is bound there already. Returns the call's result: 0, 10 (nothing
// changed) or 11 (there is no socket now).
uint32_t ChangeInterface(const std::optional<std::string>& text);

}  // namespace media_adapter

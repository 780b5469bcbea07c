// The host's network adapters: the library names itself in every packet by the first one's hardware address.
#pragma once

#include <array>
#include <cstdint>

namespace media_adapter::platform {

using MacAddress = std::array<uint8_t, 6>;

// The hardware address of the first adapter in the system's order that is not the loopback; zeros when there is none.
MacAddress FirstAdapterAddress();

}  // namespace media_adapter::platform

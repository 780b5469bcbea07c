// Creating the worker's UDP socket, at start-up and for each change of the interface.
#pragma once

#include <cstdint>

#include "platform/datagram_socket.h"

namespace media_adapter {

// Opens the socket on a free port of `localAddress` (dotted text; null: any address) with broadcasting enabled. Returns
// 0, or MEDIA_ADAPTER_SOCKET_FAILED; then, with `showMessages`, an error box has said why, and a socket that does not
// broadcast stays open.
uint32_t CreateDeviceSocket(platform::DatagramSocket& socket, const char* localAddress, bool showMessages);

// Shows "Error : %X\n" with the system's last error and `what`.
void ShowSystemError(const char* what);

}  // namespace media_adapter

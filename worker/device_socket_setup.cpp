#include "worker/device_socket_setup.h"

#include <array>
#include <cstdio>

#include "api/media_adapter.h"
#include "platform/notices.h"

namespace media_adapter {

void ShowSystemError(const char* what) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "Error : %X\n%s", static_cast<unsigned>(platform::LastSystemError()), what);
  platform::ShowError(text.data());
}

uint32_t CreateDeviceSocket(platform::DatagramSocket& socket, const char* localAddress, bool showMessages) {
  const char* failed = nullptr;
  if (!socket.Open(localAddress)) {
    failed = "Create Socket";
  } else if (!socket.EnableBroadcast()) {
    failed = "SetSockOpt";
  }
  if (failed == nullptr) return MEDIA_ADAPTER_OK;
  if (showMessages) ShowSystemError(failed);
  return MEDIA_ADAPTER_SOCKET_FAILED;
}

}  // namespace media_adapter

#include "platform/datagram_socket.h"

// The system's header first.
// clang-format off
#include "platform/windows/system.h"
#include "platform/socket_address.h"
// clang-format on

namespace media_adapter::platform {
namespace {

static_assert(INVALID_SOCKET == static_cast<SOCKET>(-1));

SOCKET SystemSocket(std::intptr_t handle) { return static_cast<SOCKET>(handle); }

// A non-blocking socket that hears nothing of ICMP errors; INVALID_SOCKET when it cannot be bound.
SOCKET OpenBound(const sockaddr_in& address) {
  const SOCKET handle = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (handle == INVALID_SOCKET) return handle;
  u_long on = 1;
  BOOL off = FALSE;
  const BOOL yes = TRUE;
  DWORD nothing = 0;
  ioctlsocket(handle, FIONBIO, &on);
  // Nobody else on this machine may bind the port as well and take the replies.
  setsockopt(handle, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&yes), sizeof yes);
  WSAIoctl(handle, SIO_UDP_CONNRESET, &off, sizeof off, nullptr, 0, &nothing, nullptr, nullptr);
  if (bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return handle;
  const int error = WSAGetLastError();
  closesocket(handle);
  WSASetLastError(error);
  return INVALID_SOCKET;
}

}  // namespace

// Never cleaned up: that is not allowed where libraries are unloaded.
bool StartSockets() {
  WSADATA data;
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

bool DatagramSocket::Open(const char* localAddress) {
  Close();
  const auto address = ParseAddress(localAddress);
  if (!address) return false;
  handle_ = static_cast<std::intptr_t>(OpenBound(*address));
  return IsOpen();
}

bool DatagramSocket::EnableBroadcast() {
  const BOOL on = TRUE;
  return setsockopt(SystemSocket(handle_), SOL_SOCKET, SO_BROADCAST, reinterpret_cast<const char*>(&on), sizeof on) ==
         0;
}

void DatagramSocket::Close() {
  if (!IsOpen()) return;
  closesocket(SystemSocket(handle_));
  handle_ = kNoHandle;
}

std::optional<Ipv4Address> DatagramSocket::LocalAddress() const {
  sockaddr_in address{};
  int size = sizeof address;
  if (getsockname(SystemSocket(handle_), reinterpret_cast<sockaddr*>(&address), &size) != 0) return std::nullopt;
  return FromSystem(address).address;
}

int DatagramSocket::SendTo(std::span<const uint8_t> datagram, const Endpoint& receiver) {
  const sockaddr_in address = SystemAddress(receiver);
  return sendto(SystemSocket(handle_), reinterpret_cast<const char*>(datagram.data()),
                static_cast<int>(datagram.size()), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

// A datagram longer than the buffer is an error of this system, and so is an ICMP error. There is no nap: a socket that
// is waited for by an event does not block.
int DatagramSocket::ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender, Patience) {
  sockaddr_in address{};
  int size = sizeof address;
  const int received = recvfrom(SystemSocket(handle_), reinterpret_cast<char*>(buffer.data()),
                                static_cast<int>(buffer.size()), 0, reinterpret_cast<sockaddr*>(&address), &size);
  if (received < 0) return -1;
  sender = FromSystem(address);
  return received;
}

}  // namespace media_adapter::platform

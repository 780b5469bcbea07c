#include "platform/datagram_socket.h"

#include <array>
#include <string>

// The system's header first.
// clang-format off
#include "platform/windows/system.h"
#include "platform/socket_address.h"
// clang-format on

namespace media_adapter::platform {
namespace {

static_assert(INVALID_SOCKET == static_cast<SOCKET>(-1));

SOCKET SystemSocket(std::intptr_t handle) { return static_cast<SOCKET>(handle); }

// A non-blocking socket that hears nothing of ICMP errors; -1 when it cannot be bound. `sharing`, an option, says
// who else may bind there.
std::intptr_t OpenBound(const sockaddr_in& address, int sharing) {
  const SOCKET handle = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (handle == INVALID_SOCKET) return -1;
  u_long on = 1;
  BOOL off = FALSE;
  const BOOL yes = TRUE;
  DWORD nothing = 0;
  ioctlsocket(handle, FIONBIO, &on);
  setsockopt(handle, SOL_SOCKET, sharing, reinterpret_cast<const char*>(&yes), sizeof yes);
  WSAIoctl(handle, SIO_UDP_CONNRESET, &off, sizeof off, nullptr, 0, &nothing, nullptr, nullptr);
  if (bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return static_cast<std::intptr_t>(handle);
  }
  const int error = WSAGetLastError();
  closesocket(handle);
  WSASetLastError(error);
  return -1;
}

// One whose datagrams tell where they were sent to.
std::intptr_t OpenTelling(const sockaddr_in& address) {
  const std::intptr_t handle = OpenBound(address, SO_REUSEADDR);
  const DWORD on = 1;
  if (handle >= 0) {
    setsockopt(SystemSocket(handle), IPPROTO_IP, IP_PKTINFO, reinterpret_cast<const char*>(&on), sizeof on);
  }
  return handle;
}

// A name that is taken for as long as the handle is open; 0 when another has it.
std::intptr_t Claim(const Endpoint& local) {
  std::string name = "media-adapter-port-" + std::to_string(local.port);
  for (const uint8_t octet : local.address) name += "-" + std::to_string(octet);
  const HANDLE claim = CreateEventA(nullptr, FALSE, FALSE, name.c_str());
  if (claim != nullptr && GetLastError() != ERROR_ALREADY_EXISTS) return reinterpret_cast<std::intptr_t>(claim);
  if (claim != nullptr) CloseHandle(claim);
  WSASetLastError(WSAEADDRINUSE);
  return 0;
}

// The call that tells where a datagram was sent to. The system has no name for it.
LPFN_WSARECVMSG ReceiveMessageOf(SOCKET socket) {
  GUID id = WSAID_WSARECVMSG;
  LPFN_WSARECVMSG call = nullptr;
  DWORD size = 0;
  WSAIoctl(socket, SIO_GET_EXTENSION_FUNCTION_POINTER, &id, sizeof id, &call, sizeof call, &size, nullptr, nullptr);
  return call;
}

bool WasBroadcast(WSAMSG& message) {
  for (WSACMSGHDR* part = WSA_CMSG_FIRSTHDR(&message); part != nullptr; part = WSA_CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO) continue;
    in_pktinfo info;
    std::memcpy(&info, WSA_CMSG_DATA(part), sizeof info);
    return info.ipi_addr.s_addr == INADDR_BROADCAST;
  }
  return false;
}

int ReceiveTelling(SOCKET socket, std::span<uint8_t> buffer, sockaddr_in& sender, bool& wasBroadcast) {
  static LPFN_WSARECVMSG receive = nullptr;
  if (receive == nullptr) receive = ReceiveMessageOf(socket);
  alignas(WSACMSGHDR) std::array<char, 256> parts{};
  WSABUF bytes{.len = static_cast<ULONG>(buffer.size()), .buf = reinterpret_cast<char*>(buffer.data())};
  WSAMSG message{.name = reinterpret_cast<sockaddr*>(&sender),
                 .namelen = sizeof sender,
                 .lpBuffers = &bytes,
                 .dwBufferCount = 1,
                 .Control = {.len = static_cast<ULONG>(parts.size()), .buf = parts.data()},
                 .dwFlags = 0};
  DWORD size = 0;
  if (receive == nullptr || receive(socket, &message, &size, nullptr, nullptr) != 0) return -1;
  wasBroadcast = WasBroadcast(message);
  return static_cast<int>(size);
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
  if (address) handle_ = OpenBound(*address, SO_EXCLUSIVEADDRUSE);
  return IsOpen();
}

// This system binds to no broadcast address: a socket for all addresses hears broadcasts, and one of a single address
// may hear them too. Where a datagram was sent to comes with each, and ReceiveFrom leaves out what is another socket's.
// Beside a socket for all addresses only shared ones may be bound, so that a name keeps others off.
bool DatagramSocket::Bind(const Endpoint& local) {
  Close();
  claim_ = Claim(local);
  if (claim_ == 0) return false;
  handle_ = OpenTelling(SystemAddress(local));
  hears_ = Hears::OwnAddress;
  return IsOpen();
}

bool DatagramSocket::BindToBroadcasts(uint16_t port) {
  Close();
  handle_ = OpenTelling(SystemAddress({{}, port}));
  hears_ = Hears::Broadcasts;
  return IsOpen();
}

bool DatagramSocket::EnableBroadcast() {
  const BOOL on = TRUE;
  return setsockopt(SystemSocket(handle_), SOL_SOCKET, SO_BROADCAST, reinterpret_cast<const char*>(&on), sizeof on) ==
         0;
}

void DatagramSocket::Close() {
  hears_ = Hears::All;
  if (claim_ != 0) CloseHandle(reinterpret_cast<HANDLE>(std::exchange(claim_, 0)));
  if (!IsOpen()) return;
  closesocket(SystemSocket(handle_));
  handle_ = kNoHandle;
}

std::optional<Endpoint> DatagramSocket::LocalEndpoint() const {
  sockaddr_in address{};
  int size = sizeof address;
  if (getsockname(SystemSocket(handle_), reinterpret_cast<sockaddr*>(&address), &size) != 0) return std::nullopt;
  return FromSystem(address);
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
  int received = 0;
  if (hears_ == Hears::All) {
    int size = sizeof address;
    received = recvfrom(SystemSocket(handle_), reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()),
                        0, reinterpret_cast<sockaddr*>(&address), &size);
  } else {
    bool wasBroadcast = false;
    received = ReceiveTelling(SystemSocket(handle_), buffer, address, wasBroadcast);
    if (wasBroadcast != (hears_ == Hears::Broadcasts)) return -1;
  }
  if (received < 0) return -1;
  sender = FromSystem(address);
  return received;
}

}  // namespace media_adapter::platform

#include "platform/datagram_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/socket_address.h"

namespace media_adapter::platform {

namespace {

// -1 when there is none; errno says why.
int OpenBound(const sockaddr_in& address, bool isShared) {
  const int handle = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (handle < 0) return handle;
  const timeval nap{.tv_sec = 0, .tv_usec = std::chrono::microseconds(DatagramSocket::kNap).count()};
  const int on = 1;
  if (setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &nap, sizeof nap) == 0 &&
      (!isShared || setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) &&
      bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return handle;
  }
  const int error = errno;
  close(handle);
  errno = error;
  return -1;
}

}  // namespace

bool StartSockets() { return true; }

bool DatagramSocket::Open(const char* localAddress) {
  Close();
  const auto address = ParseAddress(localAddress);
  if (address) handle_ = OpenBound(*address, false);
  return IsOpen();
}

bool DatagramSocket::Bind(const Endpoint& local) {
  Close();
  handle_ = OpenBound(SystemAddress(local), false);
  return IsOpen();
}

bool DatagramSocket::BindToBroadcasts(uint16_t port) {
  Close();
  handle_ = OpenBound(SystemAddress({kBroadcastAddress, port}), true);
  return IsOpen();
}

bool DatagramSocket::EnableBroadcast() {
  const int on = 1;
  return setsockopt(static_cast<int>(handle_), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) == 0;
}

void DatagramSocket::Close() {
  if (IsOpen()) close(static_cast<int>(handle_));
  handle_ = kNoHandle;
}

std::optional<Endpoint> DatagramSocket::LocalEndpoint() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(static_cast<int>(handle_), reinterpret_cast<sockaddr*>(&address), &size) != 0) return std::nullopt;
  return FromSystem(address);
}

[[gnu::hot]] int DatagramSocket::SendTo(std::span<const uint8_t> datagram, const Endpoint& receiver) {
  const sockaddr_in address = SystemAddress(receiver);
  return static_cast<int>(sendto(static_cast<int>(handle_), datagram.data(), datagram.size(), MSG_DONTWAIT,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

[[gnu::hot]] int DatagramSocket::ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender, Patience patience) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  // MSG_TRUNC asks for the datagram's own length, so that one that does not fit is seen.
  const int flags = patience == Patience::Nap ? MSG_TRUNC : MSG_TRUNC | MSG_DONTWAIT;
  const ssize_t received = recvfrom(static_cast<int>(handle_), buffer.data(), buffer.size(), flags,
                                    reinterpret_cast<sockaddr*>(&address), &size);
  if (received < 0 || static_cast<size_t>(received) > buffer.size()) return -1;
  sender = FromSystem(address);
  return static_cast<int>(received);
}

}  // namespace media_adapter::platform

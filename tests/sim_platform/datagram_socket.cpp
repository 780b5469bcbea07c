#include "platform/datagram_socket.h"

#include <algorithm>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::platform {

using sim::SimWorld;

bool DatagramSocket::Open(const char* localAddress) {
  Close();
  handle_ = SimWorld::Current().OpenSocket(localAddress);
  return IsOpen();
}

bool DatagramSocket::EnableBroadcast() { return SimWorld::Current().EnableBroadcast(handle_); }

void DatagramSocket::Close() {
  if (IsOpen()) SimWorld::Current().CloseSocket(handle_);
  handle_ = kNoHandle;
}

std::optional<Ipv4Address> DatagramSocket::LocalAddress() const { return SimWorld::Current().LocalAddress(handle_); }

int DatagramSocket::SendTo(std::span<const uint8_t> datagram, const Endpoint& receiver) {
  return SimWorld::Current().Send(handle_, datagram, receiver) ? static_cast<int>(datagram.size()) : -1;
}

int DatagramSocket::ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender) {
  const auto datagram = SimWorld::Current().Receive(handle_, sender);
  if (!datagram || datagram->size() > buffer.size()) return -1;
  std::ranges::copy(*datagram, buffer.begin());
  return static_cast<int>(datagram->size());
}

}  // namespace media_adapter::platform

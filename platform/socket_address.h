// Endpoints in the system's own form, which both backends share. Included behind the header that declares sockets
// there.
#pragma once

#include <cstring>

#include "platform/datagram_socket.h"

namespace media_adapter::platform {

inline sockaddr_in SystemAddress(const Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(endpoint.port);
  std::memcpy(&address.sin_addr, endpoint.address.data(), endpoint.address.size());
  return address;
}

inline Endpoint FromSystem(const sockaddr_in& address) {
  Endpoint endpoint;
  std::memcpy(endpoint.address.data(), &address.sin_addr, endpoint.address.size());
  endpoint.port = ntohs(address.sin_port);
  return endpoint;
}

// As inet_addr reads it; none for a text that it does not take.
inline std::optional<sockaddr_in> ParseAddress(const char* text) {
  sockaddr_in address = SystemAddress({});
  if (text != nullptr) address.sin_addr.s_addr = inet_addr(text);
  if (address.sin_addr.s_addr == INADDR_NONE) return std::nullopt;
  return address;
}

}  // namespace media_adapter::platform

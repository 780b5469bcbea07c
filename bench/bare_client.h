// The yardstick: the least that a client can do to move the same datagrams. Blocking socket, no timers, no checks; it
// is right only as long as nothing is lost.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "protocol/wire.h"

namespace media_adapter::bench {

class BareClient {
 public:
  // Connects to the device at `address`. Throws std::runtime_error when it does not answer.
  BareClient(const char* address, std::span<const uint8_t, 6> mac);
  ~BareClient();
  BareClient(const BareClient&) = delete;
  BareClient& operator=(const BareClient&) = delete;

  // One sector read, and one sector write of zeros: the same datagram each time, and its reply.
  void ReadSector();
  void WriteSector();
  void SetSector(uint32_t sector);

  // Streams `size` bytes from `sector` on into the file `path` as they come, acknowledging every third packet.
  void Stream(uint32_t sector, uint32_t size, const std::string& path);

 private:
  using Datagram = std::vector<uint8_t>;
  Datagram Build(wire::Command command, uint16_t sequence, std::span<const uint8_t> body) const;
  size_t Exchange(const Datagram& request);
  size_t Receive();
  void Send(const Datagram& datagram) const;

  int socket_;
  sockaddr_in device_;
  std::array<uint8_t, 6> mac_{};
  std::array<uint8_t, wire::kMaxDatagramSize> reply_{};
  Datagram read_;
  Datagram write_;
};

}  // namespace media_adapter::bench

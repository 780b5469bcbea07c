// The simulator's side of the wire format: what a device sends, the parsed header of what it receives, and the walk
// over the items of a body. Shared by the device model and its parts; the byte layout stands in protocol/wire.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/adapters.h"
#include "platform/datagram_socket.h"

namespace media_adapter::simulator {

using Time = std::chrono::nanoseconds;  // since an arbitrary start, never goes back
using Datagram = std::vector<uint8_t>;

// One datagram that a device sends, always from its own address and the device port.
struct Outgoing {
  platform::Endpoint receiver;
  Datagram bytes;
};

// The statuses that a device puts into its replies.
enum class DeviceStatus : uint32_t {
  Success = 0,
  InvalidSize = 1,
  InvalidElement = 2,
  InvalidPassword = 3,
  TooLong = 4,
  Busy = 5,
  NotConnected = 7,
  ProtocolError = 8,
  PacketsMissing = 9,
  StorageFailed = 49,
};

// The header of a request whose form was checked, with the body behind it. Views the received bytes.
struct Request {
  uint8_t command = 0;
  uint16_t sequence = 0;  // all 16 bits
  uint32_t status = 0;
  platform::MacAddress sourceMac{};
  platform::MacAddress destinationMac{};
  std::span<const uint8_t> digest;
  std::span<const uint8_t> body;
  std::span<const uint8_t> datagram;
  platform::Endpoint sender;
};

// None when `datagram` is no request of this protocol; `reason` then says why, in a few words.
std::optional<Request> ParseRequest(std::span<const uint8_t> datagram, const platform::Endpoint& sender,
                                    const char*& reason);

struct Item {
  uint8_t elementClass = 0;
  uint8_t index = 0;
  std::span<const uint8_t> value;
};

// Walks the items of a body. Next returns false at the end, and at an item that runs past it: IsAtEnd tells which.
class ItemReader {
 public:
  explicit ItemReader(std::span<const uint8_t> body) : rest_(body) {}
  bool Next(Item& item);
  bool IsAtEnd() const { return rest_.empty(); }

 private:
  std::span<const uint8_t> rest_;
};

// A datagram from a device to `host`: the header without status and body. `bodySize`: bytes to make room for.
Datagram BeginDatagram(uint8_t command, uint16_t sequence, const platform::MacAddress& device,
                       const platform::MacAddress& host, size_t bodySize);
// Appends an item; the returned room for its value holds zeros and is valid until the datagram grows.
std::span<uint8_t> AppendItem(Datagram& datagram, uint8_t elementClass, uint8_t index, size_t size);
void AppendNumber(Datagram& datagram, uint8_t elementClass, uint8_t index, uint32_t value);
// Sets the status and the length. A status other than Success leaves the header alone: the body is cut off.
void FinishDatagram(Datagram& datagram, DeviceStatus status);

}  // namespace media_adapter::simulator

// A device's settings: the 952-byte image in the layout of the library's ConfigurationData, secrets in clear. The
// device model reads and changes it by requests; tests look into it. Everything runs on the element table.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/datagram_socket.h"
#include "simulator/datagrams.h"

namespace media_adapter {
struct ElementRow;
}

namespace media_adapter::simulator {

class DeviceSettingsStore {
 public:
  static constexpr size_t kImageSize = 952;

  // Every element starts with the lowest value that its row allows; texts and lists are empty.
  DeviceSettingsStore(std::string_view name, const platform::Ipv4Address& address);

  // The whole image; a test may put anything there, values that a device would refuse included.
  std::span<uint8_t, kImageSize> Image() { return image_; }
  std::span<const uint8_t, kImageSize> Image() const { return image_; }
  // The field of one element, over its whole width; empty when the image has none. Secrets are in clear.
  std::span<uint8_t> Field(uint8_t elementClass, uint8_t index);

  // Elements, class * 256 + index, that the device does not know, and those that it leaves out of its replies.
  void SetGaps(std::vector<uint16_t> unknown, std::vector<uint16_t> untold);

  // The address that element (1,0) holds.
  platform::Ipv4Address Address() const;

  // Appends the elements of a search reply.
  void AppendSearchElements(Datagram& reply) const;
  // Appends the elements that `ids`, (class, index) byte pairs, ask for. InvalidElement when one is unknown or secret,
  // ProtocolError when `ids` has half a pair, TooLong when the reply would pass the size of a datagram.
  DeviceStatus AppendElements(std::span<const uint8_t> ids, Datagram& reply) const;
  // Checks all items of `body` and then stores them, secrets deciphered with `password`. ProtocolError when an item
  // runs past the body, InvalidElement for an element that cannot be written or a value out of its range, InvalidSize,
  // InvalidPassword for a secret under an empty password. Nothing is stored unless all of it is good.
  DeviceStatus Apply(std::span<const uint8_t> body, std::string_view password);

 private:
  void AppendElement(const ElementRow& row, Datagram& reply) const;
  const ElementRow* Known(uint8_t elementClass, uint8_t index) const;
  void Store(const ElementRow& row, std::span<const uint8_t> value, std::string_view password);

  std::array<uint8_t, kImageSize> image_{};
  std::vector<uint16_t> unknown_, untold_;
};

}  // namespace media_adapter::simulator

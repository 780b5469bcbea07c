// The RC4 stream cipher as published. The four secret settings travel under it, keyed by the device password; each
// starts at the beginning of the keystream.
#pragma once

#include <cstdint>
#include <span>

namespace media_adapter {

// Enciphers or deciphers `data` in place. key: 1 to 256 bytes.
void Rc4(std::span<const uint8_t> key, std::span<uint8_t> data);

}  // namespace media_adapter

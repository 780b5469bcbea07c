// Little-endian fields of datagrams and disk sectors, read and written byte by byte: the only way in which the library
// touches multi-byte values on the wire or on the volume. And the copying of whole runs of bytes. Offsets and sizes are
// checked by the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace media_adapter {

inline uint16_t ReadU16(std::span<const uint8_t> bytes, size_t offset) {
  return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

inline uint32_t ReadU32(std::span<const uint8_t> bytes, size_t offset) {
  const uint8_t* const field = &bytes[offset];
  return uint32_t{field[0]} | uint32_t{field[1]} << 8 | uint32_t{field[2]} << 16 | uint32_t{field[3]} << 24;
}

inline void WriteU16(std::span<uint8_t> bytes, size_t offset, uint16_t value) {
  bytes[offset] = static_cast<uint8_t>(value);
  bytes[offset + 1] = static_cast<uint8_t>(value >> 8);
}

inline void WriteU32(std::span<uint8_t> bytes, size_t offset, uint32_t value) {
  WriteU16(bytes, offset, static_cast<uint16_t>(value));
  WriteU16(bytes, offset + 2, static_cast<uint16_t>(value >> 16));
}

// To the start of `to`, which has room for them. The ranges' own copy goes byte by byte, which every packet would feel.
inline void CopyBytes(std::span<const uint8_t> from, std::span<uint8_t> to) {
  if (!from.empty()) std::memmove(to.data(), from.data(), from.size());
}

}  // namespace media_adapter

// The MD5 message digest of RFC 1321. It authenticates requests by the device password; it protects nothing else.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace media_adapter {

using Md5Digest = std::array<uint8_t, 16>;

// message: less than 512 MiB.
Md5Digest Md5(std::span<const uint8_t> message);

}  // namespace media_adapter

// A datagram as one readable line, for people who watch the simulator work. Describes anything, malformed datagrams
// included; control bytes of texts are escaped, secrets appear by their size only.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/adapters.h"
#include "platform/datagram_socket.h"

namespace media_adapter::simulator {

// For example "RFAReadData #57 tag 1, 58 bytes: 16.1=40 16.2=1". Items stand as class.index=value.
std::string DescribeDatagram(std::span<const uint8_t> datagram);

std::string DescribeAddress(const platform::Ipv4Address& address);  // "127.0.0.11"
std::string DescribeMac(const platform::MacAddress& mac);           // "02:00:7f:00:00:0b"

}  // namespace media_adapter::simulator

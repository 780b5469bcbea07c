// Building requests: the one send buffer, the sequence counter and the digest that proves the password. A request stays
// in the buffer after it was sent, so that a retransmission is the same datagram, byte for byte.
#pragma once

#include <cstdint>
#include <span>

#include "platform/adapters.h"
#include "protocol/session.h"
#include "protocol/wire.h"

namespace media_adapter {

// Start values: the counter at 0, `hostMac` as the source of every packet from now on.
void ResetPackets(const platform::MacAddress& hostMac);

// The body of the request to be built, kMaxBodySize bytes behind the header.
std::span<uint8_t> RequestBody();

// Completes the request whose body, of `bodySize` bytes, is in place, and advances the sequence counter. A Search goes
// to every device and proves nothing: `target`, `requestTag` and `password` are not used for it.
void BuildHeader(wire::Command command, size_t bodySize, const platform::MacAddress& target, uint8_t requestTag,
                 const Password& password);

// The datagram that BuildHeader completed last.
std::span<const uint8_t> BuiltRequest();
// Its sequence field, all 16 bits.
uint16_t BuiltSequence();

// The counter that the next request will carry, 0 to 16383. The streamed transfer sets it to number its packets.
uint16_t SequenceCounter();
void SetSequenceCounter(uint16_t value);

}  // namespace media_adapter

// The device's storage as numbered sectors: reading and writing one or two of them, starting a streamed transfer and
// acknowledging its packets. The file system above knows the device by these alone.
#pragma once

#include <cstdint>
#include <span>

#include "protocol/session.h"
#include "protocol/status_code.h"

namespace media_adapter {

inline constexpr uint32_t kMaxSectorsPerRequest = 2;
inline constexpr uint32_t kSectorSize = 512;  // the only size that file requests accept

// Where RFAReadData puts what it read: memory of the file system, for as long as a file request has its buffers.
void SetReadBuffer(std::span<uint8_t> buffer);

// Takes the data of a reply into the read buffer, as far as it was asked for.
void StoreReadData(std::span<const uint8_t> data);

// Opens access and takes the storage's geometry into sessionInfo: zero where the reply does not tell it. Returns 0, 253
// or the device's status.
StatusCode RFAConnect(const SessionValues& session);

// Closes access. Returns 0, 253 or the device's status.
StatusCode RFADisconnect(const SessionValues& session);

// Reads `count` sectors to the start of the read buffer. Returns 0; 252 (count not 1 or 2) or 251 (a sector past the
// last), nothing sent; 253; or the device's status. After a failure the read buffer holds what it held, and so it does
// behind the data of a reply that brought less than it was asked for.
StatusCode RFAReadData(uint32_t sector, uint32_t count, const SessionValues& session);

// Bytes that the last successful RFAReadData brought.
size_t ReadDataSize();

// Writes `count` sectors from `data` (count * deviceSectorSize bytes). Returns as RFAReadData.
StatusCode RFAWriteData(uint32_t sector, uint32_t count, std::span<const uint8_t> data, const SessionValues& session);

// Makes the device stream from `sector` on. On 0 the first packet is in transferBuffer and the transfer is running
// until EndTransfer. Returns 0; 251, nothing sent; 253; or the device's status.
StatusCode RFAStartTransfer(uint32_t sector, const SessionValues& session);

// Acknowledges packet `number` of the running transfer, or asks again for the packets of `missing` (at most 3).
void AcknowledgePacket(uint16_t number, std::span<const uint16_t> missing, const SessionValues& session,
                       const char* label);

// Data packets are not taken any more.
void EndTransfer();

}  // namespace media_adapter

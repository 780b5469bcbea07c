#include "protocol/sector_access.h"

#include <algorithm>

#include "protocol/exchange.h"
#include "protocol/little_endian.h"
#include "protocol/packet.h"
#include "protocol/wire.h"

namespace media_adapter {
namespace {

std::span<uint8_t> readBuffer;
std::span<uint8_t> askedFor;  // the part of it that the running request fills
size_t readDataSize = 0;

// Puts a file-access item's header at `offset` of the request's body. Returns the place of its value.
[[gnu::hot]] size_t PutItem(size_t offset, uint8_t index, size_t size) {
  const auto body = RequestBody();
  body[offset] = wire::kFileAccessClass;
  body[offset + 1] = index;
  WriteU16(body, offset + 2, static_cast<uint16_t>(size));
  return offset + wire::kItemHeaderSize;
}

// The sector item, which starts every body. Returns the body's size.
[[gnu::hot]] size_t PutSector(uint32_t sector) {
  const size_t value = PutItem(0, wire::kSectorIndex, sizeof sector);
  WriteU32(RequestBody(), value, sector);
  return value + sizeof sector;
}

[[gnu::hot]] size_t PutSectorRange(uint32_t sector, uint32_t count) {
  const size_t value = PutItem(PutSector(sector), wire::kSectorCountIndex, sizeof(uint16_t));
  WriteU16(RequestBody(), value, static_cast<uint16_t>(count));
  return value + sizeof(uint16_t);
}

StatusCode CheckRange(uint32_t sector, uint32_t count) {
  if (count == 0 || count > kMaxSectorsPerRequest) return MEDIA_ADAPTER_INVALID_SECTOR_COUNT;
  const uint64_t lastTouched = uint64_t{sector} + count - 1;
  return lastTouched > sessionInfo.lastSector ? MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS : MEDIA_ADAPTER_OK;
}

}  // namespace

void SetReadBuffer(std::span<uint8_t> buffer) { readBuffer = buffer; }

[[gnu::hot]] void StoreReadData(std::span<const uint8_t> data) {
  readDataSize = std::min(data.size(), askedFor.size());
  CopyBytes(data.first(readDataSize), askedFor);
}

size_t ReadDataSize() { return readDataSize; }

StatusCode RFAConnect(const SessionValues& session) { return RunRequest(Operation::RFAConnect, 0, session); }

StatusCode RFADisconnect(const SessionValues& session) { return RunRequest(Operation::RFADisconnect, 0, session); }

[[gnu::hot]] StatusCode RFAReadData(uint32_t sector, uint32_t count, const SessionValues& session) {
  if (const StatusCode status = CheckRange(sector, count); status != MEDIA_ADAPTER_OK) return status;
  askedFor = readBuffer.first(std::min(readBuffer.size(), size_t{count} * sessionInfo.deviceSectorSize));
  readDataSize = 0;
  return RunRequest(Operation::RFAReadData, PutSectorRange(sector, count), session);
}

[[gnu::hot]] StatusCode RFAWriteData(uint32_t sector, uint32_t count, std::span<const uint8_t> data,
                                     const SessionValues& session) {
  if (const StatusCode status = CheckRange(sector, count); status != MEDIA_ADAPTER_OK) return status;
  const size_t value = PutItem(PutSectorRange(sector, count), wire::kDataIndex, data.size());
  CopyBytes(data, RequestBody().subspan(value));
  return RunRequest(Operation::RFAWriteData, value + data.size(), session);
}

StatusCode RFAStartTransfer(uint32_t sector, const SessionValues& session) {
  if (sector > sessionInfo.lastSector) return MEDIA_ADAPTER_INVALID_SECTOR_ADDRESS;
  return RunRequest(Operation::RFAStartTransfer, PutSector(sector), session);
}

void AcknowledgePacket(uint16_t number, std::span<const uint16_t> missing, const SessionValues& session,
                       const char* label) {
  size_t bodySize = 0;
  if (!missing.empty()) {
    bodySize = PutItem(0, wire::kMissingPacketsIndex, missing.size_bytes());
    for (const uint16_t packet : missing) {
      WriteU16(RequestBody(), bodySize, packet);
      bodySize += sizeof packet;
    }
  }
  SetSequenceCounter(number);
  BuildHeader(wire::Command::TransferAcknowledgement, bodySize, protocolState.targetMac, session.requestTag,
              session.password);
  SendToDevice(label);
}

void EndTransfer() { protocolState.pendingOperation = Operation::None; }

}  // namespace media_adapter

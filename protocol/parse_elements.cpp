#include "protocol/parse_elements.h"

#include <algorithm>
#include <atomic>

#include "protocol/device_table.h"
#include "protocol/element_table.h"
#include "protocol/little_endian.h"
#include "protocol/protocol_state.h"
#include "protocol/sector_access.h"
#include "protocol/session.h"
#include "protocol/wire.h"

namespace media_adapter {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr uint8_t kFirstCounterIndex = 13;  // (15,13) to (15,15) are the three test counters
constexpr uint8_t kCounterCount = 3;
constexpr size_t kCounterSize = 4;

struct Item {
  uint8_t elementClass{};
  uint8_t index{};
  Bytes value;
};

// Takes the first item off `body`. False when it runs past the end.
[[gnu::hot]] bool TakeItem(Bytes& body, Item& item) {
  if (body.size() < wire::kItemHeaderSize) return false;
  const size_t size = ReadU16(body, 2);
  if (body.size() - wire::kItemHeaderSize < size) return false;
  item = {body[0], body[1], body.subspan(wire::kItemHeaderSize, size)};
  body = body.subspan(wire::kItemHeaderSize + size);
  return true;
}

bool IsCounter(const Item& item) {
  return item.elementClass == wire::kTestClass && item.index >= kFirstCounterIndex &&
         item.index < kFirstCounterIndex + kCounterCount;
}

bool IsValidFileAccess(const Item& item, BodyMode mode) {
  const size_t size = item.value.size();
  switch (item.index) {
    case wire::kDataIndex:
      if (mode == BodyMode::RFAReadDataReply) {
        return size != 0 && size <= uint64_t{kMaxSectorsPerRequest} * sessionInfo.deviceSectorSize;
      }
      if (mode == BodyMode::TransferData) return size != 0 && size <= wire::kPacketSize;
      return true;
    case wire::kLastSectorIndex:
      return size == 4;
    case wire::kSectorSizeIndex:
      return size == 4 && ReadU32(item.value, 0) != 0;
    default:
      return true;
  }
}

[[gnu::cold]] bool IsValidElement(const Item& item) {
  if (IsCounter(item)) return item.value.size() == kCounterSize;
  const ElementRow* row = FindElement(item.elementClass, item.index);
  return row == nullptr || IsValidValue(*row, item.value);
}

void StoreSetting(const ElementRow& row, Bytes value, std::span<uint8_t> record, size_t offset) {
  const auto field = record.subspan(offset, row.maxSize);
  if (row.form == ElementForm::Text) std::ranges::fill(field, uint8_t{0});
  CopyBytes(value, field);
  if (row.form == ElementForm::List && ReadU32(field, 0) == kNoList) WriteU32(field, 0, 0);
}

template <class Record>
std::span<uint8_t> BytesOf(Record& record) {
  return {reinterpret_cast<uint8_t*>(&record), sizeof record};
}

void StoreSearchItem(const Item& item) {
  const ElementRow* row = FindElement(item.elementClass, item.index);
  if (row == nullptr || row->entryOffset == kNoOffset) return;
  StoreSetting(*row, item.value, BytesOf(deviceTable.entries[deviceTable.count]), row->entryOffset);
}

void StoreConfigurationItem(const Item& item) {
  const ElementRow* row = FindElement(item.elementClass, item.index);
  if (row == nullptr || !row->isRead) return;
  StoreSetting(*row, item.value, BytesOf(configurationData), row->configOffset);
}

void StoreCounter(const Item& item) {
  if (!IsCounter(item)) return;
  // The application reads the counters whenever it likes; each is one 32-bit store.
  std::atomic_ref(testData.counters[item.index - kFirstCounterIndex])
      .store(ReadU32(item.value, 0), std::memory_order_relaxed);
}

[[gnu::cold]] void StoreElement(const Item& item, BodyMode mode) {
  if (mode == BodyMode::SearchReply) StoreSearchItem(item);
  if (mode == BodyMode::GetConfigurationReply) StoreConfigurationItem(item);
  if (mode == BodyMode::TestReport) StoreCounter(item);
}

void StoreFileAccess(const Item& item, BodyMode mode) {
  if (mode == BodyMode::RFAConnectReply) {
    if (item.index == wire::kLastSectorIndex) sessionInfo.lastSector = ReadU32(item.value, 0);
    if (item.index == wire::kSectorSizeIndex) sessionInfo.deviceSectorSize = ReadU32(item.value, 0);
  } else if (item.index == wire::kDataIndex && mode == BodyMode::RFAReadDataReply) {
    StoreReadData(item.value);
  } else if (item.index == wire::kDataIndex && mode == BodyMode::TransferData) {
    CopyBytes(item.value, transferBuffer.data);
    transferBuffer.size = static_cast<uint16_t>(item.value.size());
  }
}

enum class Pass : bool { Check, Store };

// False at an item that is malformed.
[[gnu::hot, gnu::noinline]] bool Walk(Bytes body, BodyMode mode, Pass pass) {
  while (!body.empty()) {
    Item item;
    if (!TakeItem(body, item)) return false;
    const bool isFileAccess = item.elementClass == wire::kFileAccessClass;
    if (pass == Pass::Store) {
      isFileAccess ? StoreFileAccess(item, mode) : StoreElement(item, mode);
    } else if (isFileAccess ? !IsValidFileAccess(item, mode) : !IsValidElement(item)) {
      return false;
    }
  }
  return true;
}

}  // namespace

[[gnu::hot]] bool ParseElements(Bytes body, BodyMode mode) {
  if (!Walk(body, mode, Pass::Check)) return false;
  if (mode == BodyMode::SearchReply) deviceTable.entries[deviceTable.count] = {};
  if (mode == BodyMode::TransferData) transferBuffer.size = 0;  // a packet without data carries none
  if (mode == BodyMode::RFAConnectReply) sessionInfo = {};      // another device's geometry is not this one's
  return Walk(body, mode, Pass::Store);
}

}  // namespace media_adapter

// The devices that the last search found. Every device index of the interface selects an entry of this table.
#pragma once

#include <array>
#include <cstdint>

#include "api/media_adapter.h"

namespace media_adapter {

struct DeviceTable {
  uint32_t count = 0;  // at most MEDIA_ADAPTER_MAX_DEVICES
  std::array<DeviceEntry, MEDIA_ADAPTER_MAX_DEVICES> entries{};
};

extern DeviceTable deviceTable;

}  // namespace media_adapter

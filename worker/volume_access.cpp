#include "worker/volume_access.h"

#include <algorithm>
#include <mutex>

#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "protocol/device_table.h"
#include "protocol/sector_access.h"

namespace media_adapter {
namespace {

bool IsValidPath(const std::optional<std::string>& path) {
  return path && !path->empty() && path->size() <= MEDIA_ADAPTER_MAX_PATH;
}

StatusCode CheckPaths(const RequestRecord& record) {
  const bool isWriting = record.id == RequestId::RFAWriteData;
  const bool isFormatting = record.id == RequestId::RFAFormat;
  if (isWriting && !IsValidPath(record.localPath)) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;
  if (!isFormatting && !IsValidPath(record.devicePath)) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;
  return MEDIA_ADAPTER_OK;
}

StatusCode MountIfNeeded(uint32_t device) {
  platform::MacAddress mac{};
  std::ranges::copy(deviceTable.entries.at(device).macAddress, mac.begin());
  return IsMounted(mac) ? StatusCode{MEDIA_ADAPTER_OK} : MountVolume(mac);
}

}  // namespace

StatusCode CheckDeviceArguments(const RequestRecord& record) {
  {
    std::lock_guard lock(ResultMutex());  // a search that gave up writes the count
    if (record.deviceIndex >= searchResult.deviceCount) return MEDIA_ADAPTER_DEVICE_NOT_FOUND;
  }
  if (record.password.size() > MEDIA_ADAPTER_MAX_PASSWORD) return MEDIA_ADAPTER_INVALID_PASSWORD_LENGTH;
  return MEDIA_ADAPTER_OK;
}

StatusCode PrepareVolumeAccess(const RequestRecord& record) {
  if (const StatusCode status = CheckDeviceArguments(record); status != MEDIA_ADAPTER_OK) return status;
  if (const StatusCode status = CheckPaths(record); status != MEDIA_ADAPTER_OK) return status;

  const SessionValues session{record.requestTag, Password(record.password), record.deviceIndex};
  if (const StatusCode status = RFAConnect(session); status != MEDIA_ADAPTER_OK) return status;
  if (sessionInfo.deviceSectorSize != kSectorSize) return MEDIA_ADAPTER_INVALID_SECTOR_SIZE;

  const auto kind = record.id == RequestId::RFAFormat ? BufferKind::WithoutFatCache : BufferKind::WithFatCache;
  if (!AllocateSectorBuffers(kind)) return MEDIA_ADAPTER_NOT_ENOUGH_MEMORY;
  sessionValues = session;
  return MountIfNeeded(record.deviceIndex);
}

}  // namespace media_adapter

#include "worker/handlers.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>

#include "api/result_blocks.h"
#include "api/status_table.h"
#include "fat/directory_listing.h"
#include "fat/sector_buffers.h"
#include "fileops/file_operations.h"
#include "protocol/device_table.h"
#include "protocol/protocol_state.h"
#include "protocol/requests.h"
#include "protocol/sector_access.h"
#include "worker/interface_change.h"
#include "worker/volume_access.h"

namespace media_adapter {
namespace {

constexpr std::string_view kUnknownStatus = "Unknown status";

// Writes the status and its text. Under ResultMutex().
template <class Block>
void WriteStatus(StatusCode status, Block& block) {
  block.status = status;
  if (LookupStatusText(status, block.message)) return;
  *std::ranges::copy(kUnknownStatus, block.message).out = '\0';
}

template <class Block>
void Report(StatusCode status, Block& block) {
  std::lock_guard lock(ResultMutex());
  WriteStatus(status, block);
}

SessionValues SessionOf(const RequestRecord& record) {
  return {record.requestTag, Password(record.password), record.deviceIndex};
}

// A list of names that is missing or longer than any that can be meant.
StatusCode CheckElements(const RequestRecord& record) {
  if (record.elements.empty() && record.elementCount > 0) return MEDIA_ADAPTER_INVALID_ELEMENT_SIZE;
  return record.elements.size() < record.elementCount ? MEDIA_ADAPTER_PACKET_TOO_LARGE : MEDIA_ADAPTER_OK;
}

// A name that fills its field has no terminator: it is compared as a bounded field.
std::string_view NameOf(const DeviceEntry& entry) {
  const auto* const begin = reinterpret_cast<const char*>(entry.name);
  return {begin, std::find(begin, begin + sizeof entry.name, '\0')};
}

// Moves the devices of exactly that name to the front of the table. Returns their number.
uint32_t KeepDevicesNamed(std::string_view name) {
  const auto found = std::span(deviceTable.entries).first(deviceTable.count);
  uint32_t kept = 0;
  for (const DeviceEntry& entry : found) {
    if (NameOf(entry) != name) continue;
    deviceTable.entries[kept++] = entry;
  }
  return kept;
}

void ListNoDevices() {
  std::lock_guard lock(ResultMutex());
  searchResult.deviceCount = 0;
}

void HandleSearch(RequestRecord& record) {
  if (!record.text) return ListNoDevices();
  uint32_t count = Search();
  if (!record.text->empty()) count = KeepDevicesNamed(*record.text);
  std::lock_guard lock(ResultMutex());
  searchResult.deviceCount = count;
  std::ranges::copy(deviceTable.entries, searchResult.devices);
}

void HandleGetConfiguration(RequestRecord& record) {
  if (const StatusCode status = CheckDeviceArguments(record); status != MEDIA_ADAPTER_OK) {
    return Report(status, configurationResult);
  }
  StatusCode status = CheckElements(record);
  if (status == MEDIA_ADAPTER_OK) status = GetConfiguration(record.elements, SessionOf(record));
  std::lock_guard lock(ResultMutex());
  WriteStatus(status, configurationResult);
  configurationResult.configuration = configurationData;
}

StatusCode RunSetIPConfiguration(RequestRecord& record) {
  if (!record.ipConfiguration) return MEDIA_ADAPTER_INVALID_ELEMENT_SIZE;
  ipConfiguration = *record.ipConfiguration;
  return SetIPConfiguration(SessionOf(record));
}

StatusCode RunSetConfiguration(RequestRecord& record) {
  if (!record.configuration) return MEDIA_ADAPTER_INVALID_ELEMENT_SIZE;
  if (const StatusCode status = CheckElements(record); status != MEDIA_ADAPTER_OK) return status;
  configurationData = *record.configuration;
  return SetConfiguration(record.elements, SessionOf(record));
}

StatusCode RunConnect(RequestRecord& record) {
  const StatusCode status = RFAConnect(SessionOf(record));
  const bool hasWrongSectors = status == MEDIA_ADAPTER_OK && sessionInfo.deviceSectorSize != kSectorSize;
  return hasWrongSectors ? StatusCode{MEDIA_ADAPTER_INVALID_SECTOR_SIZE} : status;
}

StatusCode RunDisconnect(RequestRecord& record) { return RFADisconnect(SessionOf(record)); }

// A device request without files, whose result is a status alone.
template <StatusCode (*run)(RequestRecord&)>
void HandleDeviceRequest(RequestRecord& record) {
  StatusCode status = CheckDeviceArguments(record);
  if (status == MEDIA_ADAPTER_OK) status = run(record);
  Report(status, statusResult);
}

StatusCode RunSetTest(RequestRecord& record) {
  if (!record.testParameters) return MEDIA_ADAPTER_INVALID_ELEMENT_SIZE;
  testData.parameters = *record.testParameters;
  return SetTest(SessionOf(record));
}

void HandleSetTest(RequestRecord& record) {
  if (const StatusCode status = CheckDeviceArguments(record); status != MEDIA_ADAPTER_OK) {
    return Report(status, testResult);
  }
  const StatusCode status = RunSetTest(record);
  std::lock_guard lock(ResultMutex());
  WriteStatus(status, testResult);
  testResult.testData = &testData;
}

// The frame of the file requests: access to the volume, the operation, the buffers freed after success.
template <class Operation>
StatusCode RunOnVolume(RequestRecord& record, Operation operation) {
  StatusCode status = PrepareVolumeAccess(record);
  if (status != MEDIA_ADAPTER_OK) return status;
  status = operation();
  if (status == MEDIA_ADAPTER_OK) FreeSectorBuffers();
  return status;
}

void AskForTrim(RequestRecord& record) {
  std::lock_guard lock(ResultMutex());
  record.trimsCallerText = true;
}

void HandleRead(RequestRecord& record) {
  bool isListing = false;
  const StatusCode status = RunOnVolume(record, [&] {
    const ReadArguments arguments{*record.devicePath, record.localPath, record.progress, [&] { AskForTrim(record); }};
    return ReadDeviceItem(arguments, isListing);
  });
  std::lock_guard lock(ResultMutex());
  WriteStatus(status, readDataResult);
  if (status != MEDIA_ADAPTER_OK || !isListing) return;
  readDataResult.entryCount = directoryListing.count;
  std::ranges::copy(directoryListing.RowsAndEnd(), readDataResult.entries);
}

void HandleWrite(RequestRecord& record) {
  const auto status = RunOnVolume(
      record, [&] { return StoreLocalFile(*record.localPath, *record.devicePath, [&] { AskForTrim(record); }); });
  Report(status, statusResult);
}

void HandleDelete(RequestRecord& record) {
  Report(RunOnVolume(record, [&] { return DeleteDeviceFile(*record.devicePath); }), statusResult);
}

void HandleFormat(RequestRecord& record) { Report(RunOnVolume(record, FormatVolume), statusResult); }

void HandleCreateDirectory(RequestRecord& record) {
  Report(RunOnVolume(record, [&] { return MakeDirectory(*record.devicePath); }), statusResult);
}

void SetInterfaceStatus(uint32_t status) {
  std::lock_guard lock(ResultMutex());
  interfaceStatus = status;
}

void HandleSetIpInterface(RequestRecord& record) { SetInterfaceStatus(ChangeInterface(record.text)); }

template <auto& block>
void ReportNoMemory() {
  Report(MEDIA_ADAPTER_NOT_ENOUGH_MEMORY, block);
}

struct Handler {
  void (*run)(RequestRecord&);
  void (*fail)() = ReportNoMemory<statusResult>;  // what it comes to when there is no memory
};

// In the order of RequestId.
constexpr std::array<Handler, 13> kHandlers = {{
    {HandleSearch, ListNoDevices},
    {HandleGetConfiguration, ReportNoMemory<configurationResult>},
    {HandleDeviceRequest<RunSetIPConfiguration>},
    {HandleDeviceRequest<RunSetConfiguration>},
    {HandleSetTest, ReportNoMemory<testResult>},
    {HandleDeviceRequest<RunConnect>},
    {HandleRead, ReportNoMemory<readDataResult>},
    {HandleDelete},
    {HandleWrite},
    {HandleFormat},
    {HandleCreateDirectory},
    {HandleDeviceRequest<RunDisconnect>},
    {HandleSetIpInterface, [] { SetInterfaceStatus(MEDIA_ADAPTER_SOCKET_FAILED); }},
}};

}  // namespace

void HandleRequest(RequestRecord& record) {
  const auto place = static_cast<size_t>(record.id) - static_cast<size_t>(RequestId::Search);
  const Handler& handler = kHandlers.at(place);
  try {
    handler.run(record);
  } catch (const std::exception&) {  // there is no memory; the end of a stopped thread passes by
    handler.fail();
  }
}

}  // namespace media_adapter

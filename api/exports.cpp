// The fifteen functions of the public header. Each copies its arguments into a record and passes the gate; what the
// request does is the worker's.
#include <algorithm>
#include <atomic>
#include <cstring>

#include "api/media_adapter.h"
#include "api/request_gate.h"
#include "api/request_record.h"
#include "api/result_blocks.h"

namespace media_adapter {
namespace {

using RecordPointer = std::shared_ptr<RequestRecord>;

// More element names than there are elements cannot make a request; no more are copied.
constexpr uint32_t kMaxElements = 65536;

// Copies `text`, at most one character more than the longest that is accepted, so that its length can be judged.
std::optional<std::string> CopyText(const char* text, size_t longest) {
  if (text == nullptr) return std::nullopt;
  const char* end = std::find(text, text + longest + 1, '\0');
  return std::string(text, end);
}

std::optional<std::string> CopyPath(const char* path) { return CopyText(path, MEDIA_ADAPTER_MAX_PATH); }

template <class Record>
std::optional<Record> CopyRecord(const Record* record) {
  return record == nullptr ? std::nullopt : std::optional<Record>(*record);
}

std::optional<std::vector<uint16_t>> CopyElements(const uint16_t* elements, uint32_t count) {
  if (elements == nullptr) return std::nullopt;
  return std::vector<uint16_t>(elements, elements + std::min(count, kMaxElements));
}

RecordPointer NewRecord(RequestId id) {
  auto record = std::make_shared<RequestRecord>();
  record->id = id;
  return record;
}

RecordPointer NewDeviceRecord(RequestId id, uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  auto record = NewRecord(id);
  record->requestTag = static_cast<uint8_t>(requestTag);
  record->password = CopyText(password, MEDIA_ADAPTER_MAX_PASSWORD).value_or("");
  record->deviceIndex = deviceIndex;
  return record;
}

void PrepareNothing() {}

// Runs a request whose result block has a status; giving up marks it there, and nothing else. `folder` is the caller's
// own text, which loses its trailing separator when the request has asked for that.
template <class Block>
const Block* Run(const RecordPointer& record, Block& block, char* folder = nullptr,
                 const std::function<void()>& prepare = PrepareNothing) {
  PassGate(record, prepare, [&](bool completed) {
    if (!completed) block.status = MEDIA_ADAPTER_NO_RESPONSE;
    if (record->trimsCallerText) folder[std::strlen(folder) - 1] = '\0';
  });
  return &block;
}

const ReadDataResult* Read(const char* devicePath, char* localFolder, uint32_t requestTag, const char* password,
                           uint32_t deviceIndex, uint32_t* progress) {
  const auto record = NewDeviceRecord(RequestId::RFAReadData, requestTag, password, deviceIndex);
  record->devicePath = CopyPath(devicePath);
  record->localPath = CopyPath(localFolder);
  record->progress = progress;
  const auto clearProgress = [progress] {
    if (progress != nullptr) std::atomic_ref(*progress).store(0, std::memory_order_relaxed);
  };
  return Run(record, readDataResult, localFolder, clearProgress);
}

}  // namespace
}  // namespace media_adapter

using namespace media_adapter;  // NOLINT(google-build-using-namespace): the exports are this file's only other contents

const SearchResult* API_Search(const char* filter) {
  const auto record = NewRecord(RequestId::Search);
  if (filter != nullptr) record->text = filter;
  PassGate(record, PrepareNothing, [](bool completed) {
    if (!completed) searchResult.deviceCount = 0;
  });
  return &searchResult;
}

const ConfigurationResult* API_GetConfiguration(const uint16_t* elements, uint32_t elementCount, uint32_t requestTag,
                                                const char* password, uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::GetConfiguration, requestTag, password, deviceIndex);
  record->elements = CopyElements(elements, elementCount);
  record->elementCount = elementCount;
  return Run(record, configurationResult);
}

const StatusResult* API_SetIPConfiguration(const IpConfiguration* configuration, uint32_t requestTag,
                                           const char* password, uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::SetIPConfiguration, requestTag, password, deviceIndex);
  record->ipConfiguration = CopyRecord(configuration);
  return Run(record, statusResult);
}

const StatusResult* API_SetConfiguration(const uint16_t* elements, uint32_t elementCount,
                                         const ConfigurationData* configuration, uint32_t requestTag,
                                         const char* password, uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::SetConfiguration, requestTag, password, deviceIndex);
  record->elements = CopyElements(elements, elementCount);
  record->elementCount = elementCount;
  record->configuration = CopyRecord(configuration);
  return Run(record, statusResult);
}

const TestResult* API_SetTest(const TestParameters* parameters, uint32_t requestTag, const char* password,
                              uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::SetTest, requestTag, password, deviceIndex);
  record->testParameters = CopyRecord(parameters);
  return Run(record, testResult);
}

const StatusResult* API_RFAConnect(uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  return Run(NewDeviceRecord(RequestId::RFAConnect, requestTag, password, deviceIndex), statusResult);
}

const ReadDataResult* API_RFAReadData(const char* devicePath, char* localFolder, uint32_t requestTag,
                                      const char* password, uint32_t deviceIndex) {
  return Read(devicePath, localFolder, requestTag, password, deviceIndex, nullptr);
}

const ReadDataResult* API_RFAReadDataExt(const char* devicePath, char* localFolder, uint32_t requestTag,
                                         const char* password, uint32_t deviceIndex, uint32_t* progress) {
  return Read(devicePath, localFolder, requestTag, password, deviceIndex, progress);
}

const StatusResult* API_RFADelete(const char* devicePath, uint32_t requestTag, const char* password,
                                  uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::RFADelete, requestTag, password, deviceIndex);
  record->devicePath = CopyPath(devicePath);
  return Run(record, statusResult);
}

const StatusResult* API_RFAWriteData(const char* localPath, char* deviceFolder, uint32_t requestTag,
                                     const char* password, uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::RFAWriteData, requestTag, password, deviceIndex);
  record->localPath = CopyPath(localPath);
  record->devicePath = CopyPath(deviceFolder);
  return Run(record, statusResult, deviceFolder);
}

const StatusResult* API_RFAFormat(uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  return Run(NewDeviceRecord(RequestId::RFAFormat, requestTag, password, deviceIndex), statusResult);
}

const StatusResult* API_RFACreateDirectory(const char* devicePath, uint32_t requestTag, const char* password,
                                           uint32_t deviceIndex) {
  const auto record = NewDeviceRecord(RequestId::RFACreateDirectory, requestTag, password, deviceIndex);
  record->devicePath = CopyPath(devicePath);
  return Run(record, statusResult);
}

const StatusResult* API_RFADisconnect(uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  return Run(NewDeviceRecord(RequestId::RFADisconnect, requestTag, password, deviceIndex), statusResult);
}

void API_Terminate(uint32_t) {}

uint32_t API_SetIpInterface(const char* address) {
  const auto record = NewRecord(RequestId::SetIpInterface);
  if (address != nullptr) record->text = address;
  uint32_t status = 0;
  const auto prepare = [] { interfaceStatus = 0; };
  PassGate(record, prepare, [&status](bool completed) {
    if (!completed) interfaceStatus = MEDIA_ADAPTER_NO_RESPONSE;
    status = interfaceStatus;
  });
  return status;
}

// The fifteen functions of the public header. Each passes the gate and copies its arguments into a record there; what
// the request does is the worker's.
#include <algorithm>
#include <atomic>
#include <functional>

#include "api/media_adapter.h"
#include "api/request_gate.h"
#include "api/request_record.h"
#include "api/result_blocks.h"

namespace media_adapter {
namespace {

// More element names than there are elements cannot make a request; no more are copied.
constexpr uint32_t kMaxElements = 65536;

// Copies `text`, at most one character more than the longest that is accepted, so that its length can be judged.
std::optional<std::string> CopyText(const char* text, size_t longest) {
  if (text == nullptr) return std::nullopt;
  const char* end = std::find(text, text + longest + 1, '\0');
  return std::string(text, end);
}

std::optional<std::string> CopyPath(const char* path) { return CopyText(path, MEDIA_ADAPTER_MAX_PATH); }

// A path that may lose its trailing separator, in the caller's own text as well.
std::optional<std::string> CopyFolder(char* folder, RequestRecord& record) {
  auto copy = CopyPath(folder);
  if (copy && !copy->empty()) record.callerSeparator = folder + copy->size() - 1;
  return copy;
}

template <class Record>
std::optional<Record> CopyRecord(const Record* record) {
  return record == nullptr ? std::nullopt : std::optional<Record>(*record);
}

void CopyElements(const uint16_t* elements, uint32_t count, RequestRecord& record) {
  record.elementCount = count;
  if (elements != nullptr) record.elements.assign(elements, elements + std::min(count, kMaxElements));
}

// Giving up: in a forked child several threads may do so at once, without a lock.
void Mark(uint32_t& field, uint32_t value) { std::atomic_ref(field).store(value, std::memory_order_relaxed); }

// What every device export has.
struct DeviceArguments {
  uint32_t requestTag;
  const char* password;
  uint32_t deviceIndex;
};

// Runs a request whose result block has a status; giving up marks it there, and nothing else. `fill` copies what the
// export has besides the device's arguments. References do not make the gate's functions allocate.
template <class Block, class Fill>
const Block* Run(RequestId id, Block& block, const DeviceArguments& device, Fill fill) {
  const auto fillAll = [&](RequestRecord& record) {
    record.requestTag = static_cast<uint8_t>(device.requestTag);
    record.password = CopyText(device.password, MEDIA_ADAPTER_MAX_PASSWORD).value_or("");
    record.deviceIndex = device.deviceIndex;
    fill(record);
  };
  const auto finish = [&](bool completed) {
    if (!completed) Mark(block.status, MEDIA_ADAPTER_NO_RESPONSE);
  };
  PassGate(id, std::ref(fillAll), std::ref(finish));
  return &block;
}

void FillNothing(RequestRecord&) {}

const ReadDataResult* Read(const char* devicePath, char* localFolder, const DeviceArguments& device,
                           uint32_t* progress) {
  return Run(RequestId::RFAReadData, readDataResult, device, [&](RequestRecord& record) {
    if (progress != nullptr) Mark(*progress, 0);
    record.devicePath = CopyPath(devicePath);
    record.localPath = CopyFolder(localFolder, record);
    record.progress = progress;
  });
}

}  // namespace
}  // namespace media_adapter

using namespace media_adapter;  // NOLINT(google-build-using-namespace): the exports are this file's only other contents

const SearchResult* API_Search(const char* filter) {
  const auto fill = [&](RequestRecord& record) { record.text = CopyText(filter, sizeof(DeviceEntry::name)); };
  const auto finish = [](bool completed) {
    if (!completed) Mark(searchResult.deviceCount, 0);
  };
  PassGate(RequestId::Search, std::ref(fill), std::ref(finish));
  return &searchResult;
}

const ConfigurationResult* API_GetConfiguration(const uint16_t* elements, uint32_t elementCount, uint32_t requestTag,
                                                const char* password, uint32_t deviceIndex) {
  return Run(RequestId::GetConfiguration, configurationResult, {requestTag, password, deviceIndex},
             [&](RequestRecord& record) { CopyElements(elements, elementCount, record); });
}

const StatusResult* API_SetIPConfiguration(const IpConfiguration* configuration, uint32_t requestTag,
                                           const char* password, uint32_t deviceIndex) {
  return Run(RequestId::SetIPConfiguration, statusResult, {requestTag, password, deviceIndex},
             [&](RequestRecord& record) { record.ipConfiguration = CopyRecord(configuration); });
}

const StatusResult* API_SetConfiguration(const uint16_t* elements, uint32_t elementCount,
                                         const ConfigurationData* configuration, uint32_t requestTag,
                                         const char* password, uint32_t deviceIndex) {
  return Run(RequestId::SetConfiguration, statusResult, {requestTag, password, deviceIndex},
             [&](RequestRecord& record) {
               CopyElements(elements, elementCount, record);
               record.configuration = CopyRecord(configuration);
             });
}

const TestResult* API_SetTest(const TestParameters* parameters, uint32_t requestTag, const char* password,
                              uint32_t deviceIndex) {
  return Run(RequestId::SetTest, testResult, {requestTag, password, deviceIndex},
             [&](RequestRecord& record) { record.testParameters = CopyRecord(parameters); });
}

const StatusResult* API_RFAConnect(uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  return Run(RequestId::RFAConnect, statusResult, {requestTag, password, deviceIndex}, FillNothing);
}

const ReadDataResult* API_RFAReadData(const char* devicePath, char* localFolder, uint32_t requestTag,
                                      const char* password, uint32_t deviceIndex) {
  return Read(devicePath, localFolder, {requestTag, password, deviceIndex}, nullptr);
}

const ReadDataResult* API_RFAReadDataExt(const char* devicePath, char* localFolder, uint32_t requestTag,
                                         const char* password, uint32_t deviceIndex, uint32_t* progress) {
  return Read(devicePath, localFolder, {requestTag, password, deviceIndex}, progress);
}

const StatusResult* API_RFADelete(const char* devicePath, uint32_t requestTag, const char* password,
                                  uint32_t deviceIndex) {
  return Run(RequestId::RFADelete, statusResult, {requestTag, password, deviceIndex},
             [&](RequestRecord& record) { record.devicePath = CopyPath(devicePath); });
}

const StatusResult* API_RFAWriteData(const char* localPath, char* deviceFolder, uint32_t requestTag,
                                     const char* password, uint32_t deviceIndex) {
  return Run(RequestId::RFAWriteData, statusResult, {requestTag, password, deviceIndex}, [&](RequestRecord& record) {
    record.localPath = CopyPath(localPath);
    record.devicePath = CopyFolder(deviceFolder, record);
  });
}

const StatusResult* API_RFAFormat(uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  return Run(RequestId::RFAFormat, statusResult, {requestTag, password, deviceIndex}, FillNothing);
}

const StatusResult* API_RFACreateDirectory(const char* devicePath, uint32_t requestTag, const char* password,
                                           uint32_t deviceIndex) {
  return Run(RequestId::RFACreateDirectory, statusResult, {requestTag, password, deviceIndex},
             [&](RequestRecord& record) { record.devicePath = CopyPath(devicePath); });
}

const StatusResult* API_RFADisconnect(uint32_t requestTag, const char* password, uint32_t deviceIndex) {
  return Run(RequestId::RFADisconnect, statusResult, {requestTag, password, deviceIndex}, FillNothing);
}

void API_Terminate(uint32_t) {}

uint32_t API_SetIpInterface(const char* address) {
  uint32_t status = MEDIA_ADAPTER_NO_RESPONSE;
  const auto fill = [&](RequestRecord& record) {
    if (address != nullptr) record.text = address;
  };
  const auto finish = [&](bool completed) {
    if (completed) status = interfaceStatus;
  };
  PassGate(RequestId::SetIpInterface, std::ref(fill), std::ref(finish));
  return status;
}

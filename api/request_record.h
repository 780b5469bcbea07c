// One request on its way from an export to the worker: a deep copy of the caller's arguments, shared by both. The
// worker never touches the caller's own memory, but for the progress value.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "api/media_adapter.h"

namespace media_adapter {

// In the order of the exports; API_RFAReadData and API_RFAReadDataExt are one request.
enum class RequestId : uint32_t {
  Search = 1025,
  GetConfiguration,
  SetIPConfiguration,
  SetConfiguration,
  SetTest,
  RFAConnect,
  RFAReadData,
  RFADelete,
  RFAWriteData,
  RFAFormat,
  RFACreateDirectory,
  RFADisconnect,
  SetIpInterface,
};

enum class RequestState : uint8_t {
  Posted,     // in the worker's queue, or running
  Done,       // its result is written
  Withdrawn,  // its caller gave up: it never begins; one that runs goes on
};

struct RequestRecord {
  RequestId id{};

  // Arguments. An absent text was a null pointer; so was a list without names that has a count.
  uint8_t requestTag = 0;
  std::string password;
  uint32_t deviceIndex = 0;
  std::optional<std::string> text;  // the filter or the interface address
  std::optional<std::string> devicePath;
  std::optional<std::string> localPath;
  std::vector<uint16_t> elements;
  uint32_t elementCount = 0;  // as the caller gave it
  std::optional<ConfigurationData> configuration;
  std::optional<IpConfiguration> ipConfiguration;
  std::optional<TestParameters> testParameters;
  uint32_t* progress = nullptr;  // the caller's, written until the read has ended

  // The last character of the caller's own folder text, for the caller alone.
  char* callerSeparator = nullptr;

  // Shared by caller and worker, under ResultMutex().
  RequestState state = RequestState::Posted;
  bool trimsCallerText = false;  // the caller takes that character off before it returns
};

// Hands the request to the worker's queue. Defined by the worker; called by any thread. Throws std::bad_alloc.
void PostRequest(std::shared_ptr<RequestRecord> record);

}  // namespace media_adapter

#include "api/result_blocks.h"

#include <cstddef>

namespace media_adapter {

// Applications of any language reach into these records by offset.
static_assert(sizeof(DeviceEntry) == 82 && sizeof(SearchResult) == 4 + 40 * 82);
static_assert(sizeof(ConfigurationData) == 952 && sizeof(ConfigurationResult) == 64 + 952);
static_assert(offsetof(ConfigurationData, element4_0) == 140 && offsetof(ConfigurationData, element14_4) == 948);
static_assert(sizeof(IpConfiguration) == 16 && offsetof(IpConfiguration, addressMode) == 12);
static_assert(sizeof(TestParameters) == 78 && offsetof(TestData, parameters) == 16);
static_assert(sizeof(ListingEntry) == 284 && offsetof(ListingEntry, size) == 276);
static_assert(sizeof(StatusResult) == 64 && sizeof(ReadDataResult) == 68 + 512 * 284);
static_assert(offsetof(TestResult, testData) == 64);

SearchResult searchResult;
ConfigurationResult configurationResult;
StatusResult statusResult;
ReadDataResult readDataResult;
TestResult testResult;
uint32_t interfaceStatus;

std::mutex& ResultMutex() {
  static std::mutex mutex;
  return mutex;
}

void ResetResultBlocks() {
  searchResult = {};
  configurationResult = {};
  statusResult = {};
  readDataResult = {};
  testResult = {};
  interfaceStatus = 0;
}

}  // namespace media_adapter

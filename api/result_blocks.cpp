#include "api/result_blocks.h"

#include <cstddef>

namespace media_adapter {

// Applications of any language reach into these records by offset.
static_assert(sizeof(DeviceEntry) == 82 && offsetof(DeviceEntry, element8_14) == 16 &&
              offsetof(DeviceEntry, element0_0) == 17 && offsetof(DeviceEntry, element0_1) == 33 &&
              offsetof(DeviceEntry, element8_6) == 37 && offsetof(DeviceEntry, element8_0) == 38 &&
              offsetof(DeviceEntry, element8_1) == 70 && offsetof(DeviceEntry, ipAddress) == 71 &&
              offsetof(DeviceEntry, element9_0) == 75 && offsetof(DeviceEntry, macAddress) == 76);
static_assert(sizeof(ConfigurationData) == 952 && offsetof(ConfigurationData, element1_0) == 36 &&
              offsetof(ConfigurationData, element1_10) == 53 && offsetof(ConfigurationData, element2_0) == 56 &&
              offsetof(ConfigurationData, element2_7) == 136 && offsetof(ConfigurationData, element4_2) == 260 &&
              offsetof(ConfigurationData, element8_0) == 348 && offsetof(ConfigurationData, element8_4) == 384 &&
              offsetof(ConfigurationData, element8_7) == 388 && offsetof(ConfigurationData, element8_8) == 390 &&
              offsetof(ConfigurationData, element8_10) == 398 && offsetof(ConfigurationData, element9_0) == 408 &&
              offsetof(ConfigurationData, element9_3) == 411 && offsetof(ConfigurationData, element9_6) == 527 &&
              offsetof(ConfigurationData, element10_0) == 532 && offsetof(ConfigurationData, element10_1) == 760 &&
              offsetof(ConfigurationData, element10_2) == 764 && offsetof(ConfigurationData, element14_0) == 812 &&
              offsetof(ConfigurationData, element14_3) == 883 && offsetof(ConfigurationData, element14_4) == 948);
static_assert(sizeof(IpConfiguration) == 16 && offsetof(IpConfiguration, addressMode) == 12);
static_assert(sizeof(TestParameters) == 78 && offsetof(TestParameters, element15_4) == 5 &&
              offsetof(TestParameters, element15_9) == 6 && offsetof(TestParameters, element15_8) == 10 &&
              offsetof(TestParameters, element15_7) == 12 && offsetof(TestParameters, element15_11) == 13);
static_assert(offsetof(TestData, parameters) == 16);
static_assert(sizeof(ListingEntry) == 284 && offsetof(ListingEntry, name) == 4 &&
              offsetof(ListingEntry, attributes) == 260 && offsetof(ListingEntry, second) == 262 &&
              offsetof(ListingEntry, year) == 272 && offsetof(ListingEntry, size) == 276 &&
              offsetof(ListingEntry, firstCluster) == 280);
static_assert(sizeof(SearchResult) == 4 + 40 * 82);
static_assert(sizeof(StatusResult) == 64);
static_assert(sizeof(ConfigurationResult) == 64 + 952);
static_assert(sizeof(ReadDataResult) == 68 + 512 * 284 && offsetof(ReadDataResult, entryCount) == 64);
static_assert(offsetof(TestResult, testData) == 64);

SearchResult searchResult;
ConfigurationResult configurationResult;
StatusResult statusResult;
ReadDataResult readDataResult;
TestResult testResult;
uint32_t interfaceStatus;

platform::Mutex& ResultMutex() {
  static constinit platform::Mutex mutex;
  return mutex;
}

void ResetResultBlocks() {
  searchResult = {};
  configurationResult = {};
  statusResult = {};
  readDataResult = {};
  testResult = {};
}

}  // namespace media_adapter

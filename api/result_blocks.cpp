#include "api/result_blocks.h"

#include <cstddef>

namespace media_adapter {

#define RECORD(record, size) static_assert(sizeof(record) == (size));
#define FIELD(record, field, offset, size) \
  static_assert(offsetof(record, field) == (offset) && sizeof(record::field) == (size));
#include "api/record_layouts.inc"

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

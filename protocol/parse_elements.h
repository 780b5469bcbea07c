// The body of a reply: every item is checked against the tables first, then each is stored where the reply's kind has a
// place for it. A malformed body stores nothing.
#pragma once

#include <cstdint>
#include <span>

namespace media_adapter {

// What a body belongs to. The values are the reply codes.
enum class BodyMode : uint8_t {
  SearchReply = 2,
  GetConfigurationReply = 6,
  TestReport = 11,
  RFAConnectReply = 33,
  RFAReadDataReply = 37,
  TransferData = 41,
};

// Checks the items of `body` and stores them: a SearchReply in the device table's next entry and an RFAConnectReply in
// sessionInfo (each cleared before), a GetConfigurationReply in configurationData, a TestReport in testData's counters,
// an RFAReadDataReply in the read buffer, TransferData in transferBuffer. Items that no table lists are skipped. False
// when the body is malformed; nothing is stored then. An empty body is well formed.
bool ParseElements(std::span<const uint8_t> body, BodyMode mode);

}  // namespace media_adapter

// The state of the one outstanding request, and what accepted replies leave behind. Senders open it, reception and the
// timers end it; only the worker touches it.
#pragma once

#include <array>
#include <cstdint>

#include "platform/adapters.h"
#include "platform/datagram_socket.h"
#include "protocol/eager_wait.h"
#include "protocol/status_code.h"
#include "protocol/wire.h"

namespace media_adapter {

// The number of an operation is also the id of its timer.
enum class Operation : uint8_t {
  None = 0,
  Search = 1,
  GetConfiguration = 2,
  SetIPConfiguration = 3,
  SetConfiguration = 4,
  SetTest = 5,
  RFAConnect = 6,
  RFADisconnect = 7,
  RFAReadData = 8,
  RFAWriteData = 9,
  RFAStartTransfer = 10,
  Transfer = 11,  // data packets are coming in
};

struct ProtocolState {
  Operation pendingOperation = Operation::None;
  uint8_t retryCount = 0;         // retransmissions of the current request; of a whole transfer together
  bool replyReceived = false;     // a reply was accepted
  bool operationDone = false;     // ends the sender's wait
  bool transferTimedOut = false;  // the transfer's timer gave up
  StatusCode replyStatus = 0;     // of the accepted reply
  platform::Ipv4Address deviceAddress{};
  platform::MacAddress targetMac{};
  EagerWait eagerWait{};  // what the waits so far tell about the next one
};

// The last data packet of a streamed transfer.
struct TransferBuffer {
  std::array<uint8_t, wire::kPacketSize> data{};
  uint16_t size = 0;
  uint16_t lastPacketNumber = 0;  // 14 bits
};

extern ProtocolState protocolState;
extern TransferBuffer transferBuffer;

// The library's images of what applications exchange with devices.
extern ConfigurationData configurationData;
extern IpConfiguration ipConfiguration;
extern TestData testData;

// Everything of this header and of the session back to its start values.
void ResetProtocol();

}  // namespace media_adapter

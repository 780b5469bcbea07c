#include "protocol/protocol_state.h"

#include "protocol/device_table.h"
#include "protocol/session.h"

namespace media_adapter {

ProtocolState protocolState;
TransferBuffer transferBuffer;
SessionInfo sessionInfo;
ConfigurationData configurationData;
IpConfiguration ipConfiguration;
TestData testData;
DeviceTable deviceTable;

void ResetProtocol() {
  protocolState = {};
  transferBuffer = {};
  sessionInfo = {};
  configurationData = {};
  ipConfiguration = {};
  testData = {};
  deviceTable = {};
}

}  // namespace media_adapter

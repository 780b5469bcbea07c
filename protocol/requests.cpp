#include "protocol/requests.h"

#include <algorithm>

#include "protocol/config_elements.h"
#include "protocol/device_table.h"
#include "protocol/exchange.h"

namespace media_adapter {
namespace {

StatusCode RunBuilt(Operation operation, const BuiltBody& body, const SessionValues& session) {
  return body.status == MEDIA_ADAPTER_OK ? RunRequest(operation, body.size, session) : body.status;
}

}  // namespace

uint32_t Search() {
  RunSearch();
  return deviceTable.count;
}

StatusCode GetConfiguration(std::span<const ElementId> elements, const SessionValues& session) {
  return RunBuilt(Operation::GetConfiguration, BuildElementIdList(elements), session);
}

StatusCode SetIPConfiguration(const SessionValues& session) {
  static constexpr ElementId kElements[] = {0x0100, 0x0101, 0x0102, 0x0104};
  ConfigurationData source = configurationData;
  std::ranges::copy(ipConfiguration.value1, source.element1_0);
  std::ranges::copy(ipConfiguration.value2, source.element1_1);
  std::ranges::copy(ipConfiguration.value3, source.element1_2);
  source.element1_4 = ipConfiguration.addressMode;
  return RunBuilt(Operation::SetIPConfiguration, BuildConfigElements(kElements, session.password, source), session);
}

StatusCode SetConfiguration(std::span<const ElementId> elements, const SessionValues& session) {
  return RunBuilt(Operation::SetConfiguration, BuildConfigElements(elements, session.password, configurationData),
                  session);
}

StatusCode SetTest(const SessionValues& session) { return RunBuilt(Operation::SetTest, BuildTestElements(), session); }

}  // namespace media_adapter

#include "cli/commands/requests.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "cli/console/terminal.h"
#include "cli/device/device_choice.h"

namespace media_adapter::cli {

int Confirm(const Context& context, const char* operation, const std::string& what) {
  if (!IsInputTerminal()) {
    return context.output.Failed(operation, Problem("asks first; give --yes when there is nobody to ask"), kUsage);
  }
  if (AskYes(what + " [y/N] ")) return kSuccess;
  return context.output.Failed(operation, Problem("not confirmed, nothing was sent"));
}

int FinishRequest(const Context& context, const char* operation, const Answer& answer, const char* done) {
  if (!answer.IsOk()) return context.output.Failed(operation, answer);
  context.output.Note(done);
  if (context.output.isJson) context.output.Json(AnswerJson(answer));
  return kSuccess;
}

Answer CheckNewAddress(const Session& session, std::span<const uint8_t, 4> address) {
  for (const DeviceEntry& device : session.Devices()) {
    if (&device != session.Device() && std::ranges::equal(device.ipAddress, address)) {
      return Problem("the device " + DeviceName(device) + " (" + MacText(device) + ") has the address " +
                     AddressText(device) + " already; --force sets it all the same");
    }
  }
  return {MEDIA_ADAPTER_OK, {}};
}

}  // namespace media_adapter::cli

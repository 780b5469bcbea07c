#include "cli/commands/several_devices.h"

#include <algorithm>

#include "cli/console/interrupts.h"
#include "cli/device/device_choice.h"
#include "cli/local/local_name.h"

namespace media_adapter::cli {
namespace {

// A device's name, or its MAC when another one of `devices` has the same.
std::string Label(const DeviceEntry& device, const std::vector<DeviceEntry>& devices) {
  const auto isSame = [&](const DeviceEntry& other) { return DeviceName(other) == DeviceName(device); };
  const bool isAlone = std::ranges::count_if(devices, isSame) == 1 && !DeviceName(device).empty();
  return isAlone ? DeviceName(device) : MacText(device);
}

}  // namespace

int ForEachDevice(const Context& context, const std::function<int()>& run) {
  Session& session = context.session;
  if (!session.HasSeveral()) return run();
  std::vector<DeviceEntry> devices;
  int code = session.FindSeveral(devices);
  for (const DeviceEntry& device : devices) {
    if (IsInterrupted()) break;
    context.output.device = Label(device, devices);
    session.Choose(device);
    const int deviceCode = run();
    if (code == kSuccess) code = deviceCode;
  }
  context.output.device.clear();
  session.ForgetChoice();
  return code;
}

std::string DeviceFolderName(const Context& context) {
  std::string name = context.output.device;
  if (name.empty() || IsSafeLocalName(name)) return name;
  name = MacText(*context.session.Device());
  std::ranges::replace(name, ':', '-');
  return name;
}

}  // namespace media_adapter::cli

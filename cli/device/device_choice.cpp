#include "cli/device/device_choice.h"

#include <algorithm>
#include <charconv>

#include "cli/console/text.h"
#include "cli/device/element_value.h"

namespace media_adapter::cli {
namespace {

// A name that fills its field has no terminator.
std::string_view RawName(const DeviceEntry& device) {
  const std::string_view field(reinterpret_cast<const char*>(device.name), sizeof device.name);
  return field.substr(0, field.find('\0'));
}

bool IsIndex(size_t index, std::string_view selector) {
  size_t number = 0;
  const char* const last = selector.data() + selector.size();
  const auto [end, error] = std::from_chars(selector.data(), last, number);
  return error == std::errc() && end == last && number == index;
}

}  // namespace

std::string DeviceName(const DeviceEntry& device) { return Escape(RawName(device)); }

std::string MacText(const DeviceEntry& device) {
  std::string text;
  for (const uint8_t byte : device.macAddress) text.append(text.empty() ? "" : ":").append(HexByte(byte));
  return text;
}

bool IsMacOf(const DeviceEntry& device, std::string_view text) {
  std::string mac(text);
  std::ranges::replace(mac, '-', ':');
  std::ranges::transform(mac, mac.begin(), [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
  return mac == MacText(device);
}

std::string AddressText(const DeviceEntry& device) {
  static const ElementRow& row = *FindElement(1, 0);
  return FormatValue(row, device.ipAddress);
}

std::vector<size_t> MatchingDevices(std::span<const DeviceEntry> devices, std::string_view selector) {
  std::vector<size_t> matches;
  for (size_t i = 0; i < devices.size(); ++i) {
    const DeviceEntry& device = devices[i];
    if (selector.empty() || selector == RawName(device) || selector == DeviceName(device) || IsIndex(i, selector) ||
        IsMacOf(device, selector) || selector == AddressText(device)) {
      matches.push_back(i);
    }
  }
  return matches;
}

}  // namespace media_adapter::cli

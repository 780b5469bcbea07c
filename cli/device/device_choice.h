// Which of the devices that a search found a person means by a name, an index, a hardware or an IPv4 address.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "api/media_adapter.h"

namespace media_adapter::cli {

// The device's name, escaped for printing.
std::string DeviceName(const DeviceEntry& device);
// "02:00:5e:00:00:01".
std::string MacText(const DeviceEntry& device);
// "10.0.0.7".
std::string AddressText(const DeviceEntry& device);

// `text`: pairs joined by ":" or "-".
bool IsMacOf(const DeviceEntry& device, std::string_view text);

// The indices of the devices that `selector` may mean: their name (letter case counts; raw or as it is printed), their
// index in the search, their hardware address or their IPv4 address. An empty selector means them all.
std::vector<size_t> MatchingDevices(std::span<const DeviceEntry> devices, std::string_view selector);

}  // namespace media_adapter::cli

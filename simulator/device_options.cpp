#include "simulator/device_options.h"

#include <charconv>
#include <fstream>
#include <nlohmann/json.hpp>

#include "protocol/wire.h"
#include "simulator/datagram_text.h"

namespace media_adapter::simulator {
namespace {

constexpr size_t kMaxNameLength = 16;
constexpr uint8_t kMulticastBit = 0x01;

struct DeviceTexts {
  std::string address, name, image;
  std::optional<std::string> password, mac;
};

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> fields(1);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ',') {
      fields.emplace_back();
    } else {
      if (text[i] == '\\' && i + 1 < text.size()) ++i;
      fields.back() += text[i];
    }
  }
  return fields;
}

// Four numbers without leading zeros, which some take for octal ones, joined by dots.
std::optional<platform::Ipv4Address> ParseAddress(const std::string& text) {
  platform::Ipv4Address address{};
  const char* digits = text.data();
  const char* const end = digits + text.size();
  for (size_t i = 0; i < address.size(); ++i) {
    const auto [next, error] = std::from_chars(digits, end, address[i]);
    if (error != std::errc() || (*digits == '0' && next - digits > 1)) return std::nullopt;
    const bool isLast = i + 1 == address.size();
    if (isLast ? next != end : next == end || *next != '.') return std::nullopt;
    digits = next + 1;
  }
  return address;
}

// Six bytes of two hexadecimal digits, joined by colons.
std::optional<platform::MacAddress> ParseMac(const std::string& text) {
  platform::MacAddress mac{};
  if (text.size() != mac.size() * 3 - 1) return std::nullopt;
  for (size_t i = 0; i < mac.size(); ++i) {
    const char* digits = text.data() + i * 3;
    if (std::from_chars(digits, digits + 2, mac[i], 16).ptr != digits + 2) return std::nullopt;
    if (i + 1 < mac.size() && digits[2] != ':') return std::nullopt;
  }
  if ((mac[0] & kMulticastBit) != 0 || mac == platform::MacAddress{}) return std::nullopt;
  return mac;
}

// A locally administered address, the same for the same device in every run.
platform::MacAddress MacOf(const platform::Ipv4Address& address) {
  return {0x02, 0x00, address[0], address[1], address[2], address[3]};
}

std::optional<DeviceOptions> Check(const DeviceTexts& texts, std::string& error) {
  DeviceOptions device{.identity = {.name = texts.name, .password = texts.password.value_or("")},
                       .image = texts.image,
                       .hasPassword = texts.password.has_value()};
  const auto address = ParseAddress(texts.address);
  if (!address) {
    error = "\"" + texts.address + "\" is no IPv4 address";
    return std::nullopt;
  }
  device.identity.address = *address;
  device.identity.mac = MacOf(device.identity.address);
  if (texts.name.empty() || texts.name.size() > kMaxNameLength) {
    error = "the name \"" + texts.name + "\" is not 1 to 16 bytes long";
    return std::nullopt;
  }
  if (texts.image.empty()) {
    error = "device " + texts.name + " has no image";
    return std::nullopt;
  }
  if (device.identity.password.size() > wire::kMaxPasswordLength) {
    error = "the password of device " + texts.name + " is longer than 16 bytes";
    return std::nullopt;
  }
  if (texts.mac && !texts.mac->empty()) {
    const auto mac = ParseMac(*texts.mac);
    if (!mac) {
      error = "\"" + *texts.mac + "\" is no hardware address of a device, like 02:00:7f:00:00:0b";
      return std::nullopt;
    }
    device.identity.mac = *mac;
  }
  return device;
}

}  // namespace

std::optional<DeviceOptions> ParseDevice(const std::string& text, std::string& error) {
  const std::vector<std::string> fields = SplitAtCommas(text);
  if (fields.size() < 3 || fields.size() > 5) {
    error = "\"" + text + "\" is not ADDRESS,NAME,IMAGE[,PASSWORD[,MAC]]";
    return std::nullopt;
  }
  DeviceTexts texts{fields[0], fields[1], fields[2], {}, {}};
  if (fields.size() > 3) texts.password = fields[3];
  if (fields.size() > 4) texts.mac = fields[4];
  return Check(texts, error);
}

bool ReadDeviceFile(const std::string& path, std::vector<DeviceOptions>& devices, std::string& error) {
  std::ifstream file(path);
  if (!file) {
    error = path + ": cannot be opened";
    return false;
  }
  try {
    const nlohmann::json list = nlohmann::json::parse(file);
    if (!list.is_array()) {
      error = path + ": is no array of devices";
      return false;
    }
    for (const nlohmann::json& row : list) {
      DeviceTexts texts{row.at("address"), row.at("name"), row.at("image"), {}, {}};
      if (row.contains("password")) texts.password = row.at("password").get<std::string>();
      if (row.contains("mac")) texts.mac = row.at("mac").get<std::string>();
      const auto device = Check(texts, error);
      if (!device) {
        error.insert(0, path + ": ");
        return false;
      }
      devices.push_back(*device);
    }
  } catch (const nlohmann::json::exception& exception) {
    error = path + ": " + exception.what();
    return false;
  }
  return true;
}

std::optional<std::string> ReadPassword(const std::string& path, std::string& error) {
  std::ifstream file(path);
  std::string password;
  if (!file || (!std::getline(file, password) && !file.eof())) {
    error = path + ": cannot be read";
    return std::nullopt;
  }
  if (!password.empty() && password.back() == '\r') password.pop_back();
  if (password.size() > wire::kMaxPasswordLength) {
    error = path + ": the password is longer than 16 bytes";
    return std::nullopt;
  }
  return password;
}

std::optional<std::string> FindConflict(const std::vector<DeviceOptions>& devices) {
  for (size_t i = 0; i < devices.size(); ++i) {
    for (size_t j = 0; j < i; ++j) {
      const DeviceIdentity& one = devices[j].identity;
      const DeviceIdentity& other = devices[i].identity;
      if (one.address == other.address) return "two devices have the address " + DescribeAddress(one.address);
      if (one.mac == other.mac) return "two devices have the hardware address " + DescribeMac(one.mac);
    }
  }
  return std::nullopt;
}

}  // namespace media_adapter::simulator

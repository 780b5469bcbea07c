// Every request that a device can be sent, once: the tests of arguments, of timers and of replies walk this table.
#pragma once

#include <functional>
#include <optional>
#include <regex>

#include "tests/support/volume_checks.h"

namespace media_adapter::sim {

// How a request goes over the network.
struct Exchange {
  Command command;              // the first that it sends behind what opens the storage
  Milliseconds whenUnanswered;  // when it is sent then, in ms, and last when the library gives up
  bool waitsWhenBusy = false;   // statuses that say "busy" are no replies to it
};

struct DeviceRequest {
  const char* name;
  const char* path;  // a good one; null where there is none
  // The result, which begins as a StatusResult does. Where the request has a path, it is the first argument.
  std::function<const void*(char* path, const char* password, uint32_t device)> run;
  std::optional<Exchange> exchange = {};  // of a request that may be made again and again
};

inline constexpr const char* kEmptyFile = "/proc/self/comm";  // a regular file of the host that says so of itself
inline const Milliseconds kSettingsTimes = {0, 1500, 3000, 4500, 6000}, kDisconnectTimes = {0, 1500, 3000, 4500, 7500},
                          kSectorTimes = {0, 2000, 4000, 7000, 13000}, kConnectTimes = {0, 3000, 6000, 10500, 19500};

// For a device at 127.0.0.11 whose volume holds FILE.
inline const std::vector<DeviceRequest>& DeviceRequests() {
  static const uint16_t name = MEDIA_ADAPTER_ELEMENT(0, 2);
  static const IpConfiguration ip{{127, 0, 0, 11}, {255, 0, 0, 0}, {127, 0, 0, 1}, 1, {}};
  static const ConfigurationData settings{};
  static const TestParameters test{};
  static const auto writeTo = [](const char* file, const char* folder, const char* password, uint32_t device) {
    std::string text = folder == nullptr ? "" : folder;
    return API_RFAWriteData(file, folder == nullptr ? nullptr : text.data(), 1, password, device);
  };
  static const TempFolder downloads;
  static const std::vector<DeviceRequest> requests = {
      {"GetConfiguration", nullptr, [](auto, auto p, auto d) { return API_GetConfiguration(&name, 1, 1, p, d); },
       Exchange{Command::GetConfiguration, kSettingsTimes}},
      {"SetIPConfiguration", nullptr, [](auto, auto p, auto d) { return API_SetIPConfiguration(&ip, 1, p, d); },
       Exchange{Command::SetConfiguration, kSettingsTimes}},
      {"SetConfiguration", nullptr,
       [](auto, auto p, auto d) { return API_SetConfiguration(&name, 1, &settings, 1, p, d); },
       Exchange{Command::SetConfiguration, kSettingsTimes}},
      {"SetTest", nullptr, [](auto, auto p, auto d) { return API_SetTest(&test, 1, p, d); },
       Exchange{Command::SetTest, kSettingsTimes}},
      {"RFAConnect", nullptr, [](auto, auto p, auto d) { return API_RFAConnect(1, p, d); },
       Exchange{Command::RFAConnect, kConnectTimes, true}},
      {"RFADisconnect", nullptr, [](auto, auto p, auto d) { return API_RFADisconnect(1, p, d); },
       Exchange{Command::RFADisconnect, kDisconnectTimes, true}},
      {"RFAReadData of a folder", "\\", [](auto path, auto p, auto d) { return API_RFAReadData(path, path, 1, p, d); },
       Exchange{Command::RFAReadData, kSectorTimes, true}},
      {"RFAReadData of a file", "\\FILE",
       [](auto path, auto p, auto d) { return API_RFAReadData(path, downloads.Path().string().data(), 1, p, d); },
       Exchange{Command::RFAStartTransfer, kSectorTimes, true}},
      {"RFAWriteData to a folder", "\\", [](auto path, auto p, auto d) { return writeTo(kEmptyFile, path, p, d); },
       Exchange{Command::RFAWriteData, kSectorTimes, true}},
      {"RFAWriteData of a file", kEmptyFile, [](auto path, auto p, auto d) { return writeTo(path, "\\", p, d); }},
      {"RFADelete", "\\FILE", [](auto path, auto p, auto d) { return API_RFADelete(path, 1, p, d); }},
      {"RFAFormat", nullptr, [](auto, auto p, auto d) { return API_RFAFormat(1, p, d); }},
      {"RFACreateDirectory", "\\NEW", [](auto path, auto p, auto d) { return API_RFACreateDirectory(path, 1, p, d); }},
  };
  return requests;
}

// What this expression finds in each line of the protocol's description, or of `more`, that is all of one.
inline std::vector<Strings> Documented(const std::string& line, const std::string& more = {}) {
  const Bytes page = ReadWholeFile(MEDIA_ADAPTER_PROTOCOL_PAGE);
  std::vector<Strings> rows;
  for (const std::string& text : Split(std::string(page.begin(), page.end()) + more, '\n')) {
    std::smatch found;
    if (std::regex_match(text, found, std::regex(line))) rows.emplace_back(found.begin(), found.end());
  }
  return rows;
}

// The request with what is good for it, to device 0. Returns its status.
inline uint32_t RunWell(const DeviceRequest& request) {
  std::string path = request.path == nullptr ? "" : request.path;
  return static_cast<const StatusResult*>(request.run(path.data(), kPassword, 0))->status;
}

// The library with one such device, found.
class DeviceTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    static const VolumeImage volume = Made({}, "/FILE:5000");
    device = &AddAndSearch(volume);
  }
  simulator::DeviceModel* device = nullptr;
};

}  // namespace media_adapter::sim

// The test reports that a device sends by itself after a SetTest: a bounded series, alternately of two counters and of
// the third. The device model owns one.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "simulator/datagrams.h"

namespace media_adapter::simulator {

class TestReporter {
 public:
  static constexpr std::chrono::milliseconds kInterval{250};
  static constexpr uint32_t kReports = 240;  // one minute

  // The first report follows after one interval. A series that runs is replaced; the counters go on.
  void Start(const platform::Endpoint& receiver, const platform::MacAddress& host, Time now);
  void OnTime(Time now, const platform::MacAddress& device, std::vector<Outgoing>& out);
  std::optional<Time> NextTime() const;

 private:
  platform::Endpoint receiver_;
  platform::MacAddress host_{};
  uint32_t reportsLeft_ = 0;
  uint16_t sequence_ = 0;
  std::array<uint32_t, 3> counters_{};
  Time next_{};
};

}  // namespace media_adapter::simulator

// The platform floor of the fuzz targets: one thread, time that jumps, and a network that is one function. Whatever the
// library sends goes to `onSend`; whatever stands in `incoming` is received next. When nothing is waiting, time jumps
// to the next deadline.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <vector>

#include "api/request_record.h"
#include "platform/datagram_socket.h"

namespace media_adapter::fuzz {

struct Network {
  std::function<void(std::span<const uint8_t> datagram)> onSend;
  std::function<void(std::chrono::nanoseconds now)> onTime;  // before each jump of time
  std::deque<std::vector<uint8_t>> incoming;                 // from kDevice
  std::chrono::nanoseconds now{};
};
extern Network network;

inline constexpr platform::Endpoint kDevice{{127, 0, 0, 11}, 14001};
inline constexpr std::array<uint8_t, 6> kDeviceMac = {2, 0, 127, 0, 0, 11};

// The library as it is after a search that found one device, at kDevice.
void StartWithOneDevice();
void Stop();

// Runs a request on this thread, as the worker would.
void Run(RequestRecord record);

// Takes values off the front of the fuzzer's input; zeros when there is no more.
class Input {
 public:
  explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  bool IsEmpty() const { return bytes_.empty(); }
  uint8_t Byte();
  std::vector<uint8_t> Bytes(size_t count);  // at most `count`

 private:
  std::span<const uint8_t> bytes_;
};

}  // namespace media_adapter::fuzz

// The platform floor of the fuzz targets: one thread, time that jumps, local files in memory, and a network that is one
// function. Whatever the library sends goes to `onSend`; what that delivers is received one latency later. When nothing
// is under way, time jumps to the next deadline.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "api/request_record.h"
#include "platform/datagram_socket.h"

namespace media_adapter::fuzz {

inline constexpr platform::Endpoint kDevice{{127, 0, 0, 11}, 14001};
inline constexpr std::array<uint8_t, 6> kDeviceMac = {2, 0, 127, 0, 0, 11};

struct Network {
  std::function<void(std::span<const uint8_t> datagram)> onSend;
  std::chrono::nanoseconds now{};
  std::chrono::nanoseconds latency{1'000'000};
  uint32_t sent = 0;               // datagrams of the library
  std::vector<uint32_t> statuses;  // that the device answered
};
extern Network network;

// From the device to the library. Lost when too many are under way.
void Deliver(std::span<const uint8_t> datagram);

// Local files by their paths.
extern std::map<std::string, std::vector<uint8_t>> localFiles;

// The library as it is after a search that found one device, at kDevice.
void StartWithOneDevice();
void Stop();

// Runs a request on this thread, as the worker would. Aborts when it takes longer than its exchanges may.
void Run(RequestRecord record);

// True for a status that the device sent or that is the library's own.
bool IsExplained(uint32_t status);

// Says what is wrong, and aborts.
[[noreturn]] void Breach(const char* what, uint64_t number = 0);

// The reply's header: that of the request, from the device, with a body of `bodySize` bytes.
void PutReplyHeader(std::span<const uint8_t> request, uint8_t command, uint32_t status, size_t bodySize,
                    std::span<uint8_t> reply);

// Takes values off the front of the fuzzer's input; zeros when there is no more.
class Input {
 public:
  explicit Input(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  bool IsEmpty() const { return bytes_.empty(); }
  uint8_t Byte();
  uint16_t U16();
  uint32_t U32();
  std::span<const uint8_t> Bytes(size_t count);  // at most `count`
  // A device's status: mostly one that means something to the library.
  uint32_t Status();

 private:
  std::span<const uint8_t> bytes_;
};

}  // namespace media_adapter::fuzz

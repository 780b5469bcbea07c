// What the fuzz targets share: a simulated world with the library in it as it is after a search that found one device,
// and requests that run on the target's own thread. What the device says is the target's.
#pragma once

#include "api/request_record.h"
#include "fuzz/faults.h"
#include "tests/support/temp_folder.h"

namespace media_adapter::fuzz {

inline constexpr platform::Endpoint kDevice{{127, 0, 0, 11}, 14001};
inline constexpr platform::MacAddress kDeviceMac = {2, 0, 127, 0, 0, 11};

class World {
 public:
  // `touch` is asked what becomes of each datagram, the library's and the device's.
  explicit World(std::function<Fate(const LoggedDatagram&)> touch);
  ~World();

  // Runs a request as the worker would. Aborts when it takes longer than its exchanges may.
  void Run(RequestRecord record);
  uint32_t Sent() const { return sent_; }  // datagrams of the library

  // From the device to the library: a header that answers the request, and a body.
  void Reply(const Datagram& request, uint8_t command, uint32_t status, std::span<const uint8_t> body);
  void Deliver(Datagram bytes) { network.Inject(kDevice, std::move(bytes), network.latency); }

  // True for a status that the device sent or that is the library's own.
  bool IsExplained(uint32_t status) const;

  sim::SimWorld network;
  std::vector<uint32_t> statuses;  // that the device answered

 private:
  uint32_t sent_ = 0;
};

// Local files, in a folder that all inputs use.
inline const sim::TempFolder& LocalFiles() {
  static const sim::TempFolder folder;
  return folder;
}

// Says what is wrong, and aborts.
[[noreturn]] void Breach(const char* what, uint64_t number = 0);

}  // namespace media_adapter::fuzz

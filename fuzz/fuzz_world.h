// What the fuzz targets share: a simulated world with the library in it as it is after a search that found one device,
// and requests that run on the target's own thread. What the device says is the target's.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "api/request_record.h"
#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "fuzz/faults.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"
#include "protocol/wire.h"
#include "tests/support/temp_folder.h"
#include "worker/handlers.h"

namespace media_adapter::fuzz {

inline constexpr platform::Endpoint kDevice{{127, 0, 0, 11}, 14001};
inline constexpr platform::MacAddress kDeviceMac = {2, 0, 127, 0, 0, 11};

// The longest wait after one datagram, and what a stream that stands still may add.
inline constexpr std::chrono::seconds kLongestWait{10}, kSlack{100};

// Says what is wrong, and aborts.
[[noreturn]] inline void Breach(const char* what, uint64_t number = 0) {
  std::fprintf(stderr, "BREACH: %s (%llu)\n", what, static_cast<unsigned long long>(number));
  std::abort();
}

class World {
 public:
  // `touch` is asked what becomes of each datagram, the library's and the device's.
  explicit World(std::function<Fate(const LoggedDatagram&)> touch) {
    network.keepsLog = false;
    network.fate = [this, touch = std::move(touch)](const LoggedDatagram& datagram) {
      sent_ += datagram.fromLibrary ? 1 : 0;
      if (!datagram.fromLibrary) statuses.push_back(ReadU32(datagram.bytes, wire::kStatusOffset));
      return touch(datagram);
    };
    ResetPackets({});
    ResetProtocol();
    ResetVolume();
    OpenChannel();
    auto& [queue, socket] = WorkerChannel();
    socket.Open(nullptr);
    socket.EnableBroadcast();
    queue.Watch(&socket);
    DeviceEntry& entry = deviceTable.entries[0];
    std::ranges::copy(kDevice.address, entry.ipAddress);
    std::ranges::copy(kDeviceMac, entry.macAddress);
    deviceTable.count = 1;
    searchResult.deviceCount = 1;
  }
  ~World() {
    FreeSectorBuffers();
    CloseChannel();
  }

  // Runs a request as the worker would. Aborts when it takes longer than its exchanges may.
  void Run(RequestRecord record) {
    const auto start = network.Now();
    const uint32_t sentBefore = sent_;
    HandleRequest(record);
    const auto bound = kLongestWait * (sent_ - sentBefore) + kSlack;
    if (network.Now() - start > bound) Breach("a request took too long", sent_ - sentBefore);
  }
  uint32_t Sent() const { return sent_; }  // datagrams of the library

  // From the device to the library: a header that answers the request, and a body.
  void Reply(const Datagram& request, uint8_t command, uint32_t status, std::span<const uint8_t> body) {
    statuses.push_back(status);
    Deliver(AnswerTo(request, command, status, body, kDeviceMac));
  }
  void Deliver(Datagram bytes) { network.Inject(kDevice, std::move(bytes), network.latency); }

  // True for a status that the device sent or that is the library's own.
  bool IsExplained(uint32_t status) const {
    const bool isOfLibrary = status <= 4 || (status >= 236 && status <= 255);
    return isOfLibrary || std::ranges::find(statuses, status) != statuses.end();
  }

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

}  // namespace media_adapter::fuzz

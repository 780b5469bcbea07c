#include "fuzz/fuzz_world.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "protocol/little_endian.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"
#include "protocol/wire.h"
#include "worker/handlers.h"

namespace media_adapter::fuzz {
namespace {

// The longest wait after one datagram, and what a stream that stands still may add.
constexpr std::chrono::seconds kLongestWait{10};
constexpr std::chrono::seconds kSlack{100};

}  // namespace

World::World(std::function<Fate(const LoggedDatagram&)> touch) {
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

World::~World() {
  FreeSectorBuffers();
  CloseChannel();
}

void World::Run(RequestRecord record) {
  const auto start = network.Now();
  const uint32_t sentBefore = sent_;
  HandleRequest(record);
  const auto bound = kLongestWait * (sent_ - sentBefore) + kSlack;
  if (network.Now() - start > bound) Breach("a request took too long", sent_ - sentBefore);
}

void World::Reply(const Datagram& request, uint8_t command, uint32_t status, std::span<const uint8_t> body) {
  statuses.push_back(status);
  Deliver(AnswerTo(request, command, status, body, kDeviceMac));
}

bool World::IsExplained(uint32_t status) const {
  const bool isOfLibrary = status <= 4 || (status >= 236 && status <= 255);
  return isOfLibrary || std::ranges::find(statuses, status) != statuses.end();
}

void Breach(const char* what, uint64_t number) {
  std::fprintf(stderr, "BREACH: %s (%llu)\n", what, static_cast<unsigned long long>(number));
  std::abort();
}

}  // namespace media_adapter::fuzz

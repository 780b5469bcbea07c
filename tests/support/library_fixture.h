// The library, started in a simulated world with devices on its network. Scenario tests derive from it; they look at
// results, at the datagrams that were sent and at their times.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "api/media_adapter.h"
#include "platform/load_hook.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"
#include "tests/sim_platform/sim_world.h"
#include "tests/support/volume_builder.h"
#include "worker/library.h"

namespace media_adapter::sim {

using namespace std::chrono_literals;
using Milliseconds = std::vector<int64_t>;
using wire::Command;

inline constexpr const char* kPassword = "secret";

inline Bytes Slice(const Bytes& bytes, size_t offset, size_t count) {
  const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  return Bytes(begin, begin + static_cast<std::ptrdiff_t>(count));
}

inline uint8_t CommandOf(const Datagram& bytes) { return bytes[wire::kCommandOffset]; }
inline uint16_t SequenceOf(const Datagram& bytes) { return ReadU16(bytes, wire::kSequenceOffset); }
inline bool IsReplyTo(const LoggedDatagram& datagram, Command command) {
  return !datagram.fromLibrary && CommandOf(datagram.bytes) == static_cast<uint8_t>(command) + 1;
}
inline bool IsRequest(const LoggedDatagram& datagram, Command command) {
  return datagram.fromLibrary && CommandOf(datagram.bytes) == static_cast<uint8_t>(command);
}

// An item of a body.
inline Bytes Item(uint8_t elementClass, uint8_t index, const Bytes& value) {
  Bytes item(wire::kItemHeaderSize + value.size());
  item[0] = elementClass;
  item[1] = index;
  WriteU16(item, 2, static_cast<uint16_t>(value.size()));
  std::ranges::copy(value, item.begin() + wire::kItemHeaderSize);
  return item;
}

inline Bytes NumberOf(uint32_t value, size_t size) {
  Bytes bytes(4);
  WriteU32(bytes, 0, value);
  bytes.resize(size);
  return bytes;
}

inline Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes whole;
  for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

inline Bytes BodyOf(const Datagram& datagram) {
  return Slice(datagram, wire::kHeaderSize, datagram.size() - wire::kHeaderSize);
}

// The datagram with another body.
inline Datagram WithBody(Datagram datagram, const Bytes& body) {
  datagram.resize(wire::kHeaderSize);
  datagram.insert(datagram.end(), body.begin(), body.end());
  WriteU16(datagram, wire::kLengthOffset, static_cast<uint16_t>(datagram.size()));
  return datagram;
}

// A device's reply to a request, of status 0 and without a body. Devices have the hardware addresses of their fixture.
inline Datagram ReplyOf(Datagram request) {
  request.resize(wire::kHeaderSize);
  ++request[wire::kCommandOffset];
  request[wire::kSenderOffset] = wire::kDeviceSender;
  WriteU16(request, wire::kLengthOffset, wire::kHeaderSize);
  std::copy_n(request.begin() + wire::kDestinationMacOffset, 6, request.begin() + wire::kSourceMacOffset);
  return request;
}

inline Datagram WithStatus(Datagram datagram, uint32_t status) {
  WriteU32(datagram, wire::kStatusOffset, status);
  return datagram;
}

class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override { Start(); }
  void TearDown() override { Stop(); }

  void Start() {
    platform::OnLibraryLoaded();
    isStarted_ = true;
  }

  void Stop() {
    if (!std::exchange(isStarted_, false)) return;
    platform::OnLibraryUnloaded();
    EXPECT_TRUE(world.errors.empty()) << world.errors.front();
    EXPECT_EQ(world.OpenSockets(), 0U);
  }

  // Devices stand at 127.0.0.11 and up.
  simulator::DeviceModel& AddDevice(const VolumeImage& image = VolumeImage(16), const std::string& name = "device",
                                    const simulator::Behaviour& behaviour = {}) {
    const auto last = static_cast<uint8_t>(11 + deviceCount_++);
    simulator::DeviceIdentity identity{{127, 0, 0, last}, {2, 0, 0, 0, 0, last}, name, kPassword};
    return world.Attach(
        std::make_unique<simulator::DeviceModel>(identity, std::make_unique<VolumeImage>(image), behaviour));
  }

  // Finds all devices; what was sent by then is not looked at any more.
  void Search() {
    ASSERT_EQ(API_Search("")->deviceCount, deviceCount_);
    Mark();
  }

  // Adds a device and finds it: index 0.
  simulator::DeviceModel& AddAndSearch(const VolumeImage& image = VolumeImage(16)) {
    auto& device = AddDevice(image);
    Search();
    return device;
  }

  // From here on the log is looked at.
  void Mark() { mark_ = world.Log().size(); }

  std::vector<LoggedDatagram> Sent() const {
    std::vector<LoggedDatagram> sent(world.Log().begin() + static_cast<std::ptrdiff_t>(mark_), world.Log().end());
    std::erase_if(sent, [](const LoggedDatagram& datagram) { return !datagram.fromLibrary; });
    return sent;
  }

  std::vector<LoggedDatagram> Sent(Command command) const {
    auto sent = Sent();
    std::erase_if(sent, [&](const LoggedDatagram& datagram) { return !IsRequest(datagram, command); });
    return sent;
  }

  // When the library sent this command since the mark, in milliseconds after the first of them, and at the end how long
  // after that it is now.
  Milliseconds Timeline(Command command) {
    Milliseconds times;
    const auto sent = Sent(command);
    if (sent.empty()) return times;
    for (const auto& datagram : sent) times.push_back((datagram.time - sent.front().time) / 1ms);
    times.push_back((world.Now() - sent.front().time) / 1ms);
    return times;
  }

  // Loses every datagram for which `isLost` says so, counted from now on.
  void Lose(std::function<bool(const LoggedDatagram&)> isLost) {
    world.fate = [isLost = std::move(isLost)](const LoggedDatagram& datagram) -> Fate {
      return {.copies = isLost(datagram) ? 0U : 1U};
    };
  }

  // The first `count` replies to `command` reach the library as `change` makes them.
  void ChangeReplies(Command command, size_t count, std::function<void(Datagram&, Endpoint&)> change) {
    world.fate = [=, left = count](const LoggedDatagram& datagram) mutable -> Fate {
      if (!IsReplyTo(datagram, command) || left == 0) return {};
      --left;
      Fate fate{.bytes = datagram.bytes, .sender = datagram.sender};
      change(*fate.bytes, *fate.sender);
      return fate;
    };
  }

  const ReadDataResult* Read(const std::string& devicePath, const std::string& localFolder = {},
                             uint32_t* progress = nullptr, uint32_t device = 0) {
    std::string folder = localFolder.empty() ? downloads_.Path().string() : localFolder;
    const auto* result = API_RFAReadDataExt(devicePath.c_str(), folder.data(), 0, kPassword, device, progress);
    folderText = folder.c_str();
    return result;
  }

  std::vector<std::string> List(const std::string& devicePath) {
    const auto* result = Read(devicePath);
    EXPECT_EQ(result->status, 0U) << devicePath;
    std::vector<std::string> names;
    for (uint32_t i = 0; i < result->entryCount; ++i) names.emplace_back(result->entries[i].name);
    return names;
  }

  Bytes Downloaded(const std::string& name) const { return ReadWholeFile(downloads_ / name); }
  const TempFolder& Downloads() const { return downloads_; }

  SimWorld world;
  std::string folderText;  // the caller's own folder text after the last Read

 private:
  TempFolder downloads_;
  uint32_t deviceCount_ = 0;
  size_t mark_ = 0;
  bool isStarted_ = false;
};

}  // namespace media_adapter::sim

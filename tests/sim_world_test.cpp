// The simulated platform itself: what the other tests rely on, the library's message queue on top of it included.
#include "tests/sim_platform/sim_world.h"

#include <gtest/gtest.h>

#include "platform/event.h"
#include "platform/message_queue.h"
#include "platform/thread.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"
#include "tests/support/volume_builder.h"

namespace media_adapter::sim {
namespace {

using namespace std::chrono_literals;
using platform::Message;
using platform::MessageQueue;

constexpr Endpoint kStranger{{127, 0, 0, 77}, 14001};

std::vector<std::string> steps;
platform::Event* rendezvous = nullptr;

void Note(const char* who) { steps.push_back(who + std::to_string((SimWorld::Current().Now() - 1000s) / 1ms)); }

TEST(SimWorld, ThreadsTakeTurnsInVirtualTime) {
  SimWorld world;
  platform::Event event;
  rendezvous = &event;
  steps.clear();
  platform::Thread thread;
  ASSERT_TRUE(thread.Start([] {
    Note("worker");
    platform::Sleep(30ms);
    Note("worker");
    const bool isSet = rendezvous->Wait(100ms);
    Note(isSet ? "set" : "timeout");
    rendezvous->Wait(60ms);
    Note("worker");
  }));
  Note("test");
  platform::Sleep(30ms);
  Note("test");
  platform::Sleep(1h);
  Note("test");
  event.Set();
  event.Set();
  EXPECT_TRUE(event.Wait(1ms));
  EXPECT_FALSE(event.Wait(1ms));
  EXPECT_TRUE(thread.Wait(0ms));
  const std::vector<std::string> expected = {"test0",      "worker0",   "test30",     "worker30",
                                             "timeout130", "worker190", "test3600030"};
  EXPECT_EQ(steps, expected);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(world.Wait([] { return false; }, std::nullopt), "Deadlock at 4600.031");
}

platform::MessageQueue* served = nullptr;

// Threads that wait for each other in real time, as callers do on the library's lock.
TEST(SimWorld, ThreadsOutsideAreServedByThoseInside) {
  SimWorld world;
  platform::Event done;
  platform::MessageQueue queue;
  rendezvous = &done;
  served = &queue;
  platform::Thread worker;
  ASSERT_TRUE(worker.Start([] {
    Message message;
    while (served->Take(message, MessageQueue::Accept::Everything) == MessageQueue::Taken::Message) {
      platform::Sleep(10s);
      rendezvous->Set();
    }
  }));
  std::mutex lock;
  int answered = 0;
  const auto call = [&] {
    for (int i = 0; i < 50; ++i) {
      std::lock_guard guard(lock);
      queue.PostRequest(nullptr);
      answered += done.Wait(60s) ? 1 : 0;
    }
  };
  {
    SimWorld::Outside outside;
    std::thread first(call), second(call);
    first.join();
    second.join();
  }
  EXPECT_EQ(answered, 100);
  queue.PostQuit();
  EXPECT_TRUE(worker.Wait(100ms));
}

class QueueTest : public ::testing::Test {
 protected:
  QueueTest() {
    socket_.Open("127.0.0.1");
    queue_.Watch(&socket_);
  }
  // What the next take gives: 'r' and the request, 'd', 't' and the timer, or 'q'.
  std::string Take(MessageQueue::Accept accept = MessageQueue::Accept::Everything) {
    Message message;
    if (queue_.Take(message, accept) == MessageQueue::Taken::Quit) return "q";
    if (message.kind == Message::Kind::Timer) return "t" + std::to_string(message.timerId);
    if (message.kind == Message::Kind::Request) return "r" + *std::static_pointer_cast<std::string>(message.request);
    std::array<uint8_t, 100> buffer{};
    Endpoint sender;
    return "d" + std::to_string(socket_.ReceiveFrom(buffer, sender));
  }
  SimWorld world_;
  MessageQueue queue_;
  platform::DatagramSocket socket_;
};

TEST_F(QueueTest, DeliversRequestsThenDatagramsThenTheLongestDueTimer) {
  queue_.ArmTimer(4, 20ms);
  queue_.ArmTimer(3, 10ms);
  queue_.ArmTimer(2, 5ms);
  queue_.ArmTimer(2, 15ms);
  queue_.ArmTimer(5, 1ms);
  queue_.KillTimer(5);
  for (uint8_t size = 1; size <= 4; ++size) world_.Inject(kStranger, Datagram(size), 1ms);
  world_.Inject(kStranger, Datagram(101), 1ms);
  world_.Advance(30ms);
  queue_.PostRequest(std::make_shared<std::string>("1"));
  queue_.PostRequest(std::make_shared<std::string>("2"));
  EXPECT_EQ(Take(MessageQueue::Accept::NoRequests), "d1");
  std::string order;
  for (int i = 0; i < 9; ++i) order += Take();
  EXPECT_EQ(order, "r1r2t3d2t2d3t4d4d-1");
  queue_.ArmTimer(1, 1500ms);
  const Time before = world_.Now();
  EXPECT_EQ(Take(), "t1");
  EXPECT_EQ(world_.Now() - before, 1500ms);
  queue_.PostRequest(std::make_shared<std::string>("3"));
  queue_.PostQuit();
  EXPECT_EQ(Take(), "q");
  EXPECT_EQ(Take(), "q");
}

Datagram SearchRequest() {
  Datagram request(wire::kHeaderSize);
  WriteU32(request, wire::kMagicOffset, wire::kMagic);
  request[wire::kCommandOffset] = 1;
  request[wire::kFormatOffset] = wire::kFormatByte;
  request[wire::kSenderOffset] = wire::kHostSender;
  WriteU16(request, wire::kLengthOffset, wire::kHeaderSize);
  for (size_t i = 0; i < 6; ++i) request[wire::kDestinationMacOffset + i] = 0xFF;
  return request;
}

std::unique_ptr<simulator::DeviceModel> Device(uint8_t last) {
  return std::make_unique<simulator::DeviceModel>(
      simulator::DeviceIdentity{{127, 0, 0, last}, {2, 0, 0, 0, 0, last}, "device", ""},
      std::make_unique<simulator::MemoryStorage>(Bytes(512)));
}

// What the socket hears in the next second: the last octet of each sender and the size.
std::vector<std::pair<uint8_t, int>> Hear(SimWorld& world, platform::DatagramSocket& socket) {
  world.Advance(1s);
  std::vector<std::pair<uint8_t, int>> heard;
  std::array<uint8_t, wire::kMaxDatagramSize> buffer{};
  Endpoint sender;
  while (world.IsReadable(socket.Handle())) {
    const int size = socket.ReceiveFrom(buffer, sender);
    heard.emplace_back(sender.address[3], size);
  }
  return heard;
}

TEST_F(QueueTest, TheNetworkDoesWhatTheScriptSays) {
  world_.Attach(Device(11));
  world_.Attach(Device(12));
  const Endpoint everybody{platform::kBroadcastAddress, wire::kDevicePort};
  EXPECT_EQ(socket_.SendTo(SearchRequest(), everybody), -1) << "without the broadcast option";
  ASSERT_TRUE(socket_.EnableBroadcast());
  EXPECT_EQ(socket_.SendTo(SearchRequest(), everybody), 44);
  auto heard = Hear(world_, socket_);
  ASSERT_EQ(heard.size(), 2U);
  EXPECT_EQ(heard[0].first, 11);
  EXPECT_EQ(heard[1].first, 12);
  ASSERT_EQ(world_.Log().size(), 3U);
  EXPECT_EQ(world_.Log()[1].time - world_.Log()[0].time, world_.latency);
  EXPECT_EQ(world_.Log()[0].sender, (Endpoint{{127, 0, 0, 1}, 50000}));
  EXPECT_EQ(world_.Log()[2].receiver, world_.Log()[0].sender);

  // The requests 0 to 4 and their replies, each changed in another way.
  const size_t first = world_.Log().size();
  world_.fate = [&](const LoggedDatagram& datagram, size_t ordinal) -> Fate {
    switch (ordinal - first) {
      case 0:
        return {.copies = 0};
      case 1:
        return {.copies = 2};
      case 2:
        return {.delay = 50ms, .extra = {Datagram(3)}};
      case 3:
        return {.bytes = Datagram(datagram.bytes.begin(), datagram.bytes.end() - 1), .sender = kStranger};
      default:
        return {};
    }
  };
  const auto send = [&] { socket_.SendTo(SearchRequest(), {{127, 0, 0, 11}, wire::kDevicePort}); };
  send();
  EXPECT_TRUE(Hear(world_, socket_).empty());
  send();
  const int size = heard[0].second;
  const std::vector<std::pair<uint8_t, int>> expected = {{77, size - 1}, {11, 3}, {11, size}};
  EXPECT_EQ(Hear(world_, socket_), expected);
  EXPECT_EQ(world_.Log()[first].copies, 0U);
}

TEST(SimWorld, BindsOnlyWhatTheHostHas) {
  SimWorld world;
  platform::DatagramSocket socket;
  EXPECT_FALSE(socket.Open("10.0.0.1"));
  EXPECT_FALSE(socket.Open("127.0.0.1x"));
  EXPECT_TRUE(socket.Open("192.168.1.20 "));
  EXPECT_EQ(socket.LocalAddress(), (platform::Ipv4Address{192, 168, 1, 20}));
  EXPECT_TRUE(socket.Open(nullptr));
  EXPECT_EQ(world.OpenSockets(), 1U);
  world.failing.open = true;
  EXPECT_FALSE(socket.Open(nullptr));
  EXPECT_EQ(world.OpenSockets(), 0U);
}

std::vector<std::pair<Time, unsigned>> RandomRun(uint64_t seed) {
  SimWorld world(seed);
  world.Attach(Device(11));
  world.random = {.loss = 0.3, .duplication = 0.3, .reordering = 0.5};
  platform::DatagramSocket socket;
  socket.Open(nullptr);
  for (int i = 0; i < 100; ++i) {
    socket.SendTo(SearchRequest(), {{127, 0, 0, 11}, wire::kDevicePort});
    world.Advance(100us);
  }
  world.Advance(1s);
  std::vector<std::pair<Time, unsigned>> run;
  for (const auto& datagram : world.Log()) run.emplace_back(datagram.time, datagram.copies);
  return run;
}

TEST(SimWorld, TheSameSeedGivesTheSameRun) {
  EXPECT_EQ(RandomRun(7), RandomRun(7));
  EXPECT_NE(RandomRun(7), RandomRun(8));
}

TEST(VolumeBuilder, StrangersReadBackWhatTheyWrote) {
  for (const VolumeShape shape : {VolumeShape{}, VolumeShape{.fatBits = 32, .fats = 2, .partitionStart = 63},
                                  VolumeShape{.sectorsPerCluster = 64}}) {
    VolumeBuilder builder(shape);
    const Bytes content = Pattern(70000);
    builder.AddFolder("/A folder");
    builder.AddFile("/A folder/Some long file name.bin", content);
    builder.AddFiles("", {"GONE.TXT", "EMPTY"});
    builder.Delete("/GONE.TXT");
    builder.SetAttributes("/EMPTY", {"+r", "-a"});
    VolumeImage image = builder.Build();
    auto tree = ReadTree(image, shape.partitionStart);
    EXPECT_EQ(tree.size(), 3U);
    EXPECT_TRUE(tree["/A folder"].isFolder);
    EXPECT_EQ(tree["/A folder/Some long file name.bin"].content, content);
    EXPECT_EQ(tree["/A folder/Some long file name.bin"].modified, 1500000000);
    EXPECT_EQ(tree["/EMPTY"].attributes, "R");
    EXPECT_TRUE(FsckComplaints(image, shape.partitionStart).empty());

    VolumeImage copy = image;
    const uint32_t fat = shape.partitionStart + ReadU16(image.At(shape.partitionStart), 14);
    copy.At(fat)[100] = 7;  // a link from nowhere
    EXPECT_FALSE(FsckComplaints(copy, shape.partitionStart).empty());
    EXPECT_NE(image.At(fat)[100], 7);
  }
}

}  // namespace
}  // namespace media_adapter::sim

// The order in which the worker's queue delivers what waits: portable code, here on the simulated platform.
#include "platform/message_queue.h"

#include <gtest/gtest.h>

#include "tests/sim_platform/sim_world.h"

namespace media_adapter::sim {
namespace {

using namespace std::chrono_literals;
using platform::Message;
using platform::MessageQueue;

constexpr Endpoint kStranger{{127, 0, 0, 77}, 14001};

TEST(QueueTest, DeliversRequestsThenDatagramsThenTheLongestDueTimer) {
  SimWorld world;
  MessageQueue queue;
  platform::DatagramSocket socket;
  socket.Open("127.0.0.1");
  queue.Watch(&socket);
  using enum MessageQueue::Accept;
  // What the next take gives: 'r' and the request, 'd' and its size, 't' and the timer, or 'q'.
  const auto take = [&](MessageQueue::Accept accept = Everything) -> std::string {
    Message message;
    if (queue.Take(message, accept) == MessageQueue::Taken::Quit) return "q";
    if (message.kind == Message::Kind::Timer) return "t" + std::to_string(message.timerId);
    if (message.kind == Message::Kind::Request) return "r" + *std::static_pointer_cast<std::string>(message.request);
    std::array<uint8_t, 100> buffer{};
    Endpoint sender;
    return "d" + std::to_string(socket.ReceiveFrom(buffer, sender));
  };
  queue.ArmTimer(4, 20ms);
  queue.ArmTimer(3, 10ms);
  queue.ArmTimer(2, 5ms);
  queue.ArmTimer(2, 15ms);
  queue.ArmTimer(5, 1ms);
  queue.KillTimer(5);
  for (uint8_t size = 1; size <= 4; ++size) world.Inject(kStranger, Datagram(size), 1ms);
  world.Inject(kStranger, Datagram(101), 1ms);
  world.Advance(30ms);
  queue.PostRequest(std::make_shared<std::string>("1"));
  queue.PostRequest(std::make_shared<std::string>("2"));
  EXPECT_EQ(take(NoRequests), "d1");
  std::string order;
  for (int i = 0; i < 9; ++i) order += take();
  EXPECT_EQ(order, "r1r2t3d2t2d3t4d4d-1");
  queue.ArmTimer(1, 1500ms);
  const Time before = world.Now();
  EXPECT_EQ(take(), "t1");
  EXPECT_EQ(world.Now() - before, 1500ms);
  queue.PostRequest(std::make_shared<std::string>("3"));
  queue.PostQuit();
  EXPECT_EQ(take(), "q");
  EXPECT_EQ(take(), "q");
}

}  // namespace
}  // namespace media_adapter::sim

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

}  // namespace
}  // namespace media_adapter::sim

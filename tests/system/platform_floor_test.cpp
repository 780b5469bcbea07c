// This system's platform floor by itself: what the library relies on and no request shows for certain. A device listens
// at 127.0.0.46, and nobody at 127.0.0.47.
#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"
#include "platform/local_files.h"
#include "platform/raw_file.h"
#include "platform/thread.h"
#include "platform/waiter.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"
#include "tests/support/temp_folder.h"

namespace media_adapter::system_tests {
namespace {

using namespace std::chrono_literals;
using platform::DatagramSocket;
using platform::Endpoint;
using platform::Waiter;
using Outcome = Waiter::Outcome;

constexpr bool kIsWindows = std::filesystem::path::preferred_separator == '\\';

class PlatformFloor : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(platform::StartSockets() && socket_.Open("127.0.0.1"));
    ASSERT_TRUE(socket_.EnableBroadcast());
    waiter_.Watch(&socket_);
  }
  // A search, which a device answers with about a hundred bytes.
  void Ask(uint8_t last) {
    sim::Bytes request(wire::kHeaderSize);
    WriteU32(request, wire::kMagicOffset, wire::kMagic);
    request[wire::kCommandOffset] = static_cast<uint8_t>(wire::Command::Search);
    request[wire::kFormatOffset] = wire::kFormatByte;
    request[wire::kSenderOffset] = wire::kHostSender;
    WriteU16(request, wire::kLengthOffset, wire::kHeaderSize);
    std::fill_n(request.begin() + wire::kDestinationMacOffset, 6, uint8_t{0xFF});
    EXPECT_EQ(socket_.SendTo(request, {{127, 0, 0, last}, wire::kDevicePort}), wire::kHeaderSize);
  }
  Outcome WaitFor(std::chrono::milliseconds time) { return waiter_.Wait(platform::MonotonicNow() + time); }
  int Receive(size_t room = 1500) {
    sim::Bytes buffer(room);
    return socket_.ReceiveFrom(buffer, sender_);
  }

  DatagramSocket socket_;
  Waiter waiter_;
  Endpoint sender_;
};

TEST_F(PlatformFloor, DatagramsComeWholeOrNotAtAll) {
  EXPECT_EQ(Receive(), -1) << "nothing is there, and nobody waits for it";
  Ask(46);
  ASSERT_EQ(WaitFor(5s), Outcome::Readable);
  EXPECT_EQ(WaitFor(0ms), Outcome::Readable) << "until it is read";
  const int size = Receive();
  EXPECT_GT(size, 44);
  EXPECT_EQ(sender_, (Endpoint{{127, 0, 0, 46}, wire::kDevicePort}));

  Ask(46);
  Ask(47);  // nobody there: an error comes back
  Ask(46);
  std::this_thread::sleep_for(300ms);
  ASSERT_EQ(WaitFor(5s), Outcome::Readable);
  EXPECT_EQ(Receive(static_cast<size_t>(size) - 1), -1) << "too long for the buffer: gone";
  ASSERT_EQ(WaitFor(5s), Outcome::Readable) << "told without a new arrival";
  int last = Receive();
  if (last < 0) last = Receive();  // the error may count as a failed receive
  EXPECT_EQ(last, size);
  EXPECT_EQ(WaitFor(50ms), Outcome::TimedOut);

  ASSERT_TRUE(socket_.Open("127.0.0.1"));
  waiter_.Watch(&socket_);
  Ask(46);
  EXPECT_EQ(WaitFor(5s), Outcome::Readable) << "a socket that was opened anew is watched";
  EXPECT_EQ(socket_.LocalEndpoint().value().address, (platform::Ipv4Address{127, 0, 0, 1}));
  EXPECT_FALSE(socket_.Open("127.0.0.2x"));
  EXPECT_FALSE(socket_.IsOpen());
}

TEST_F(PlatformFloor, WaitsEndInTime) {
  const auto start = platform::MonotonicNow();
  EXPECT_EQ(WaitFor(150ms), Outcome::TimedOut);
  EXPECT_GE(platform::MonotonicNow() - start, 150ms);
  std::thread waker([&] {
    std::this_thread::sleep_for(100ms);
    waiter_.Wake();
  });
  EXPECT_EQ(waiter_.Wait(std::nullopt), Outcome::Woken);
  waker.join();
  waiter_.Wake();
  EXPECT_EQ(WaitFor(5s), Outcome::Woken) << "before the wait began";
  EXPECT_EQ(WaitFor(0ms), Outcome::TimedOut) << "once only";
  EXPECT_LT(platform::MonotonicNow() - start, 2s);
}

TEST_F(PlatformFloor, AThreadIsWaitedForWithoutEnd) {
  platform::Thread thread;
  EXPECT_TRUE(thread.Wait(0ms)) << "none was started";
  ASSERT_TRUE(thread.Start([] { std::this_thread::sleep_for(300ms); }));
  EXPECT_FALSE(thread.Wait(20ms));
  EXPECT_TRUE(thread.Wait(5s));
  EXPECT_TRUE(thread.Wait(5s));
}

TEST_F(PlatformFloor, AStuckThreadIsStoppedByForce) {
  platform::Thread thread;
  ASSERT_TRUE(thread.Start([] {
    const platform::Interruptible interruptible;
    std::this_thread::sleep_for(1h);
  }));
  EXPECT_FALSE(thread.Wait(100ms));
  EXPECT_TRUE(thread.StopByForce());
  EXPECT_TRUE(thread.Wait(0ms));
}

TEST_F(PlatformFloor, AFolderTellsOfItsFiles) {
  const sim::TempFolder folder;
  const std::string path = folder / "Name.TXT";
  sim::WriteWholeFile(path, sim::Bytes(1));
  const auto info = platform::FindLocalFile(kIsWindows ? folder / "nAME.txt" : path);
  const auto now = platform::CurrentLocalTime();
  ASSERT_TRUE(info);
  EXPECT_EQ(info->name, "Name.TXT");
  EXPECT_EQ(info->attributes, 0x20);
  EXPECT_EQ(info->lastWrite.year, now.year);
  const auto minutes = [](const platform::LocalTime& time) { return time.hour * 60 + time.minute; };
  EXPECT_LE((minutes(now) - minutes(info->lastWrite) + 1440) % 1440, 1) << "in local time";
  std::filesystem::permissions(path, std::filesystem::perms::owner_read);
  EXPECT_EQ(platform::FindLocalFile(path)->attributes, 0x21);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  EXPECT_EQ(platform::FindLocalFile(folder.Path().string())->attributes & 0x10, 0x10);
  EXPECT_FALSE(platform::FindLocalFile(folder / "none"));
  EXPECT_FALSE(platform::FindLocalFile(folder / "Name*"));
}

}  // namespace
}  // namespace media_adapter::system_tests

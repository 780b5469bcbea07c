// Requests on the wire: headers, digests, retransmission on every timer, giving up, and the end of the library in
// mid-request.
#include <gtest/gtest.h>

#include "protocol/md5.h"
#include "tests/support/library_fixture.h"

namespace media_adapter::sim {
namespace {

constexpr uint16_t kElement = MEDIA_ADAPTER_ELEMENT(0, 0);

uint32_t Connect() { return API_RFAConnect(0, kPassword, 0)->status; }
uint32_t Disconnect() { return API_RFADisconnect(0, kPassword, 0)->status; }

VolumeImage VolumeWithFile(const std::string& name, const Bytes& content) {
  VolumeBuilder builder({});
  builder.AddFile("/" + name, content);
  return builder.Build();
}

class ExchangeTest : public LibraryTest {
 protected:
  // Nothing that answers `command` arrives.
  void LoseRepliesTo(Command command) {
    Lose([command](const LoggedDatagram& datagram) { return IsReplyTo(datagram, command); });
  }
  void ExpectTimeline(Command command, const Milliseconds& expected) {
    EXPECT_EQ(Timeline(command), expected);
    const auto sent = Sent(command);
    for (const auto& datagram : sent) EXPECT_EQ(datagram.bytes, sent.front().bytes);
    EXPECT_EQ(sent.empty() ? Endpoint{} : sent.front().receiver, sent.empty() ? Endpoint{} : sent.back().receiver);
  }
};

TEST_F(ExchangeTest, EveryRequestIsResentOnItsTimerAndGivenUp) {
  AddAndSearch(VolumeWithFile("FILE", Pattern(5000)));
  const IpConfiguration ip{};
  const ConfigurationData settings{};
  const TestParameters test{};
  const struct {
    Command command;
    std::function<uint32_t()> call;
    Milliseconds timeline;
  } rows[] = {
      {Command::GetConfiguration,
       [] { return API_GetConfiguration(&kElement, 1, 0, kPassword, 0)->status; },
       {0, 1500, 3000, 4500, 6000}},
      {Command::SetConfiguration,
       [&] { return API_SetConfiguration(&kElement, 1, &settings, 0, kPassword, 0)->status; },
       {0, 1500, 3000, 4500, 6000}},
      {Command::SetConfiguration,
       [&] { return API_SetIPConfiguration(&ip, 0, kPassword, 0)->status; },
       {0, 1500, 3000, 4500, 6000}},
      {Command::SetTest, [&] { return API_SetTest(&test, 0, kPassword, 0)->status; }, {0, 1500, 3000, 4500, 6000}},
      {Command::RFAConnect, Connect, {0, 3000, 6000, 10500, 19500}},
      {Command::RFADisconnect, Disconnect, {0, 1500, 3000, 4500, 7500}},
      {Command::RFAReadData, [&] { return Read("\\")->status; }, {0, 2000, 4000, 7000, 13000}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.command));
    LoseRepliesTo(row.command);
    Mark();
    EXPECT_EQ(row.call(), 253U);
    ExpectTimeline(row.command, row.timeline);
    world.fate = nullptr;
    world.Advance(10s);
    EXPECT_EQ(Connect(), 0U) << "the next request works";
  }
  LoseRepliesTo(Command::RFAStartTransfer);
  Mark();
  EXPECT_EQ(Read("\\FILE")->status, 253U);
  ExpectTimeline(Command::RFAStartTransfer, {0, 2000, 4000, 7000, 13000});
}

TEST_F(ExchangeTest, ASearchListensSixSeconds) {
  Mark();
  EXPECT_EQ(API_Search("")->deviceCount, 0U);
  ExpectTimeline(Command::Search, {0, 1500, 3000, 4500, 6000});
  EXPECT_EQ(Sent().front().receiver, (Endpoint{platform::kBroadcastAddress, 14001}));
}

TEST_F(ExchangeTest, ATransferOutlivesThreeTimeouts) {
  const Bytes content = Pattern(9000);
  AddAndSearch(VolumeWithFile("FILE", content));
  // Two timeouts of the request, then a single packet, then a timeout of the data phase, in which nothing else was
  // built that could be sent again.
  world.fate = [starts = 0, packets = 0](const LoggedDatagram& datagram, size_t) mutable -> Fate {
    starts += IsRequest(datagram, Command::RFAStartTransfer) ? 1 : 0;
    if (!IsReplyTo(datagram, Command::RFAStartTransfer) || starts > 3) return {};
    return {.copies = starts == 3 && packets++ == 0 ? 1U : 0U};
  };
  Mark();
  ASSERT_EQ(Read("\\FILE")->status, 0U);
  auto times = Timeline(Command::RFAStartTransfer);
  times.pop_back();
  EXPECT_EQ(times, (Milliseconds{0, 2000, 4000, 7000}));
  EXPECT_EQ(Downloaded("FILE"), content);

  // All four in the data phase.
  Mark();
  Lose([first = true](const LoggedDatagram& datagram) mutable {
    return IsReplyTo(datagram, Command::RFAStartTransfer) && !std::exchange(first, false);
  });
  uint32_t progress = 0;
  EXPECT_EQ(Read("\\FILE", {}, &progress)->status, 253U);
  ExpectTimeline(Command::RFAStartTransfer, {0, 3000, 6000, 10500, 19500});
  EXPECT_EQ(progress, 100U);
  EXPECT_EQ(Downloaded("FILE"), Slice(content, 0, 1400)) << "what came stays";
}

TEST_F(ExchangeTest, ALateReplyIsTakenUntilTheLastTick) {
  AddAndSearch();
  const auto delayFourth = [&](Time delay) {
    world.fate = [=, reply = 0](const LoggedDatagram& datagram, size_t) mutable -> Fate {
      if (!IsReplyTo(datagram, Command::RFAConnect)) return {};
      return ++reply < 4 ? Fate{.copies = 0} : Fate{.delay = delay};
    };
    Mark();
    return Connect();
  };
  EXPECT_EQ(delayFourth(8999ms), 0U);
  EXPECT_EQ(Timeline(Command::RFAConnect), (Milliseconds{0, 3000, 6000, 10500, 19499}));
  EXPECT_EQ(delayFourth(9001ms), 253U);
  world.fate = nullptr;
  EXPECT_EQ(Disconnect(), 0U) << "the late reply to another request is not its own";
}

TEST_F(ExchangeTest, HeadersCarryAddressesCounterTagAndDigest) {
  const auto& device = AddAndSearch();
  const auto search = world.Log().front().bytes;
  EXPECT_EQ(search.size(), 44U);
  EXPECT_EQ(SequenceOf(search), 0);
  EXPECT_EQ(Slice(search, 12, 6), Bytes(world.adapter.begin(), world.adapter.end()));
  EXPECT_EQ(Slice(search, 18, 6), Bytes(6, 0xFF));
  EXPECT_EQ(Slice(search, 24, 20), Bytes(20, 0));

  const std::string passwords[] = {kPassword, "", "sixteen letters!"};
  uint16_t counter = 1;
  for (uint32_t tag : {0U, 1U, 3U, 5U, 256U + 2U}) {
    const std::string& password = passwords[counter % 3];
    Mark();
    const uint32_t status = API_RFADisconnect(tag, password.empty() ? nullptr : password.c_str(), 0)->status;
    EXPECT_EQ(status, password == kPassword ? 0U : 3U);
    ASSERT_EQ(Sent().size(), 1U);
    const auto request = Sent().front();
    EXPECT_EQ(request.receiver, (Endpoint{device.Identity().address, 14001}));
    Bytes digestInput(password.begin(), password.end());
    digestInput.push_back(static_cast<uint8_t>(counter));
    digestInput.push_back(static_cast<uint8_t>(counter >> 8));
    Bytes expected(wire::kHeaderSize);
    std::ranges::copy(Bytes{0x12, 0x34, 0x56, 0x78, 34, 1, 2, 0, 0, 0, 44, 0}, expected.begin());
    WriteU16(expected, 8, static_cast<uint16_t>((tag & 3) << 14 | counter++));
    std::ranges::copy(world.adapter, expected.begin() + 12);
    std::ranges::copy(device.Identity().mac, expected.begin() + 18);
    std::ranges::copy(Md5(digestInput), expected.begin() + 28);
    EXPECT_EQ(request.bytes, expected);
  }
}

TEST_F(ExchangeTest, TheCounterReturnsToZeroAfter16383) {
  AddAndSearch();
  for (uint32_t i = 1; i <= 16386; ++i) {
    ASSERT_EQ(API_RFADisconnect(i, kPassword, 0)->status, 0U) << i;
    const uint16_t sequence = SequenceOf(world.Log()[world.Log().size() - 2].bytes);
    ASSERT_EQ(sequence, (i & 3) << 14 | i % 16384);
  }
}

TEST_F(ExchangeTest, AFailedSendIsTracedAndMadeUpForByTheTimer) {
  AddAndSearch();
  world.failing.send = true;
  EXPECT_EQ(Connect(), 253U);
  const std::vector<std::string> expected = {"TraceSendTo(RFAConnect) nLength", "TraceSendTo(OnTimer) nLength",
                                             "TraceSendTo(OnTimer) nLength", "TraceSendTo(OnTimer) nLength"};
  EXPECT_EQ(world.traces, expected);
  world.failing.send = false;
  EXPECT_EQ(Connect(), 0U);
}

// A listing of the 32 sectors of a root directory, of which every one needs seven seconds.
class SlowRequestTest : public ExchangeTest {
 protected:
  void SetUp() override {
    ExchangeTest::SetUp();
    AddAndSearch(VolumeWithFile("FILE", {}));
    ASSERT_EQ(Read("\\FILE")->status, 0U);
    world.fate = [reply = 0](const LoggedDatagram& datagram, size_t) mutable -> Fate {
      if (!IsReplyTo(datagram, Command::RFAReadData)) return {};
      return {.copies = ++reply % 4 == 0 ? 1U : 0U};
    };
    Mark();
    result_ = Read("\\");
    EXPECT_EQ(result_->status, 253U);
    EXPECT_EQ(Timeline(Command::RFAConnect).back(), 60000);
  }
  const ReadDataResult* result_ = nullptr;
};

TEST_F(SlowRequestTest, FinishesLateAndWritesItsOwnResult) {
  EXPECT_EQ(result_->entryCount, 0U);
  world.Advance(200s);
  EXPECT_EQ(result_->status, 0U);
  EXPECT_STREQ(result_->message, "Operation successful");
  EXPECT_EQ(result_->entryCount, 1U);
  EXPECT_EQ(Connect(), 0U);
}

TEST_F(SlowRequestTest, RequestsMeanwhileWaitOrAreWithdrawn) {
  EXPECT_EQ(Disconnect(), 253U) << "nobody took it for 60 seconds";
  EXPECT_EQ(API_SetIpInterface(""), 253U);
  EXPECT_EQ(result_->status, 253U);
  EXPECT_EQ(Connect(), 0U) << "posted while the listing still runs, which ends at 224 seconds";
  EXPECT_EQ(result_->status, 0U);
  EXPECT_TRUE(Sent(Command::RFADisconnect).empty()) << "withdrawn requests never run";
  EXPECT_EQ(API_RFAConnect(0, kPassword, 1)->status, 255U);
  EXPECT_EQ(Disconnect(), 0U);
}

TEST_F(SlowRequestTest, ASearchThatGivesUpListsNothing) {
  EXPECT_EQ(API_Search("")->deviceCount, 0U);
  world.Advance(200s);
  EXPECT_EQ(Connect(), 255U);
}

TEST_F(SlowRequestTest, StoppingTheLibraryEndsItAtOnce) {
  const Background next(world, [] { EXPECT_EQ(Disconnect(), 253U) << "no one has taken it"; });
  world.Advance(1s);
  const Time before = world.Now();
  Stop();
  EXPECT_LT(world.Now() - before, 100ms);
  EXPECT_TRUE(next.HasEnded());
  const size_t sent = world.Log().size();
  world.Advance(20s);
  EXPECT_EQ(world.Log().size(), sent);
  world.fate = nullptr;
  Start();
  Search();
  EXPECT_EQ(List("\\"), std::vector<std::string>{"FILE"}) << "a library that is loaded again works";
}

TEST_F(ExchangeTest, StoppingTheLibraryEndsEverySenderAtOnce) {
  for (const bool isTransfer : {false, true}) {
    SCOPED_TRACE(isTransfer);
    AddDevice(VolumeWithFile("FILE", Pattern(9000)));
    Search();
    Lose([&](const LoggedDatagram& datagram) {
      if (!isTransfer) return IsReplyTo(datagram, Command::RFAConnect);
      return IsReplyTo(datagram, Command::RFAStartTransfer) && SequenceOf(datagram.bytes) != 1;
    });
    const Background caller(world,
                            [&, isTransfer] { EXPECT_EQ(isTransfer ? Read("\\FILE")->status : Connect(), 253U); });
    world.Advance(5s);
    EXPECT_FALSE(caller.HasEnded());
    const Time before = world.Now();
    Stop();
    EXPECT_LT(world.Now() - before, 100ms);
    EXPECT_TRUE(caller.HasEnded()) << "the call that was inside has returned";
    world.fate = nullptr;
    Start();
  }
}

}  // namespace
}  // namespace media_adapter::sim

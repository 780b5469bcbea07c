// Requests on the wire: headers, digests, retransmission on every timer, giving up, and the end of the library in
// mid-request. One simulated device on a network that loses and delays what a test wants, in virtual time.
#include <gtest/gtest.h>

#include "protocol/md5.h"
#include "protocol/packet.h"
#include "protocol/sector_access.h"
#include "tests/support/device_requests.h"

namespace media_adapter::sim {
namespace {

uint32_t Connect() { return API_RFAConnect(0, kPassword, 0)->status; }
uint32_t Disconnect() { return API_RFADisconnect(0, kPassword, 0)->status; }

class ExchangeTest : public DeviceTest {
 protected:
  void ExpectTimeline(Command command, const Milliseconds& expected) {
    EXPECT_EQ(Timeline(command), expected);
    for (const auto& datagram : Sent(command)) {
      EXPECT_EQ(datagram.bytes, Sent(command).front().bytes);
      EXPECT_EQ(datagram.receiver, Sent(command).front().receiver);
    }
  }
};

TEST_F(ExchangeTest, EveryRequestIsResentOnItsTimerAndGivenUp) {
  for (const DeviceRequest& request : DeviceRequests()) {
    if (!request.exchange) continue;
    SCOPED_TRACE(request.name);
    Lose([&](const LoggedDatagram& datagram) { return IsReplyTo(datagram, request.exchange->command); });
    Mark();
    EXPECT_EQ(RunWell(request), 253U);
    ExpectTimeline(request.exchange->command, request.exchange->whenUnanswered);
    world.fate = nullptr;
    world.Advance(10s);
    EXPECT_EQ(Connect(), 0U) << "the next request works";
  }
  Mark();
  EXPECT_EQ(API_Search("")->deviceCount, 1U);
  ExpectTimeline(Command::Search, kSettingsTimes);
  EXPECT_EQ(Sent().front().receiver, (Endpoint{platform::kBroadcastAddress, wire::kDevicePort}));
}

TEST_F(ExchangeTest, ATransferOutlivesThreeTimeouts) {
  const Bytes content = Pattern(5000);
  // Two timeouts of the request, then a single packet, then a timeout of the data phase, in which nothing else was
  // built that could be sent again.
  Lose([starts = 0, packets = 0](const LoggedDatagram& datagram) mutable {
    starts += IsRequest(datagram, Command::RFAStartTransfer) ? 1 : 0;
    return IsReplyTo(datagram, Command::RFAStartTransfer) && starts <= 3 && (starts < 3 || packets++ > 0);
  });
  Mark();
  ASSERT_EQ(Read("\\FILE")->status, 0U);
  auto times = Timeline(Command::RFAStartTransfer);
  times.pop_back();
  EXPECT_EQ(times, (Milliseconds{0, 2000, 4000, 7000}));
  EXPECT_EQ(Downloaded("FILE"), content);
}

TEST_F(ExchangeTest, ALateReplyIsTakenUntilTheLastTickAndNeverAfter) {
  const auto delayFourth = [&](const DeviceRequest& request, Time delay) {
    world.fate = [=, reply = 0](const LoggedDatagram& datagram) mutable -> Fate {
      if (!IsReplyTo(datagram, request.exchange->command)) return {};
      return ++reply < 4 ? Fate{.copies = 0} : Fate{.delay = delay};
    };
    Mark();
    return RunWell(request);
  };
  const DeviceRequest& get = DeviceRequests()[0];
  EXPECT_EQ(delayFourth(get, 1499ms), 0U);
  EXPECT_EQ(Timeline(Command::GetConfiguration), (Milliseconds{0, 1500, 3000, 4500, 5999}));
  const auto* name = API_GetConfiguration(nullptr, 0, 0, kPassword, 0)->configuration.element0_2;
  EXPECT_EQ(*name, 'd');
  device->Settings().Field(0, 2)[0] = 'D';
  EXPECT_EQ(delayFourth(get, 1501ms), 253U);
  world.fate = nullptr;
  world.Advance(1s);
  EXPECT_EQ(API_GetConfiguration(nullptr, 0, 0, kPassword, 0)->status, 0U);
  EXPECT_EQ(*name, 'd') << "nobody awaits it";
  EXPECT_EQ(delayFourth(get, 1501ms), 253U);
  world.fate = nullptr;
  EXPECT_EQ(Disconnect(), 0U) << "the late reply to another request is not its own";
}

TEST_F(ExchangeTest, HeadersCarryAddressesCounterTagAndDigest) {
  const auto search = world.Log().front().bytes;
  EXPECT_EQ(search.size(), wire::kHeaderSize);
  EXPECT_EQ(SequenceOf(search), 0);
  EXPECT_EQ(Slice(search, wire::kSourceMacOffset, 6), Bytes(world.adapter.begin(), world.adapter.end()));
  EXPECT_EQ(Slice(search, wire::kDestinationMacOffset, 6), Bytes(6, 0xFF));
  EXPECT_EQ(Slice(search, wire::kStatusOffset, 20), Bytes(20, 0));

  const std::string passwords[] = {kPassword, "", "sixteen letters!"};
  uint16_t counter = 1;
  for (uint32_t tag : {0U, 1U, 3U, 5U, 256U + 2U}) {
    if (tag == 5) SetSequenceCounter(counter = wire::kSequenceMask);  // then comes 0
    const std::string& password = passwords[counter % 3];
    Mark();
    const uint32_t status = API_RFADisconnect(tag, password.empty() ? nullptr : password.c_str(), 0)->status;
    EXPECT_EQ(status, password == kPassword ? 0U : 3U);
    ASSERT_EQ(Sent().size(), 1U);
    EXPECT_EQ(Sent().front().receiver, (Endpoint{device->Identity().address, wire::kDevicePort}));
    Bytes digestInput(password.begin(), password.end());
    digestInput.push_back(static_cast<uint8_t>(counter));
    digestInput.push_back(static_cast<uint8_t>(counter >> 8));
    const auto digest = Md5(digestInput);
    const auto& [host, its] = std::pair(world.adapter, device->Identity().mac);
    Bytes expected = Join({{0x12, 0x34, 0x56, 0x78, 34, 1, 2, 0, 0, 0, wire::kHeaderSize, 0},
                           Bytes(host.begin(), host.end()),
                           Bytes(its.begin(), its.end()),
                           Bytes(4),
                           Bytes(digest.begin(), digest.end())});
    WriteU16(expected, wire::kSequenceOffset, static_cast<uint16_t>((tag & 3) << 14 | counter));
    EXPECT_EQ(Sent().front().bytes, expected);
    counter = static_cast<uint16_t>((counter + 1) % 16384);
  }
}

TEST_F(ExchangeTest, AFailedSendIsTracedAndMadeUpForByTheTimer) {
  world.failing.send = true;
  EXPECT_EQ(Connect(), 253U);
  const std::vector<std::string> expected = {"TraceSendTo(RFAConnect) nLength", "TraceSendTo(OnTimer) nLength",
                                             "TraceSendTo(OnTimer) nLength", "TraceSendTo(OnTimer) nLength"};
  EXPECT_EQ(world.traces, expected);
  world.failing.send = false;
  EXPECT_EQ(Connect(), 0U);
}

TEST_F(ExchangeTest, AQuickDeviceIsLookedForAndASlowOneIsSleptFor) {
  world.wakeUp = 50us;
  const auto looks = [&](Time answer, size_t exchanges) {
    world.latency = answer / 2;
    const size_t before = world.emptyReceives;
    for (size_t i = 0; i < exchanges; ++i) EXPECT_EQ(Connect(), 0U);
    return world.emptyReceives - before;
  };
  EXPECT_GE(looks(20us, 50), 45 * 20U);
  EXPECT_LE(looks(500us, 2000), 14 * 50U) << "each look in vain doubles the sleeps, up to 1024";
  EXPECT_LE(looks(500us, 2100), 3 * 50U);
  EXPECT_GE(looks(20us, 3500), 300 * 20U) << "it is noticed";
  EXPECT_EQ(looks(20us, 50), 50 * 20U);
  world.wakeUp = 0us;  // as on one processor: to sleep is as quick
  EXPECT_LE(looks(80us, 20), 5 * 50U);
  EXPECT_LE(looks(20us, 2500), 30 * 20U);
}

TEST_F(ExchangeTest, SectorsBehindTheLastAreNeverAskedFor) {
  ASSERT_EQ(Connect(), 0U);
  Mark();
  const uint32_t last = sessionInfo.lastSector;
  for (const auto& [sector, count, status] : std::vector<std::array<uint32_t, 3>>{
           {0, 0, 252}, {0, 3, 252}, {last + 1, 1, 251}, {last, 2, 251}, {0xFFFFFFFF, 2, 251}}) {
    EXPECT_EQ(RFAReadData(sector, count, {}), status);
    EXPECT_EQ(RFAWriteData(sector, count, {}, {}), status);
  }
  EXPECT_EQ(RFAStartTransfer(last + 1, {}), 251U);
  EXPECT_TRUE(Sent().empty());
}

// A listing of the 32 sectors of a root directory, of which every one needs seven seconds: 224 in all.
class SlowRequestTest : public ExchangeTest {
 protected:
  const ReadDataResult* ListSlowly() {
    EXPECT_EQ(Read("\\FILE")->status, 0U);
    Lose([reply = 0](const LoggedDatagram& datagram) mutable {
      return IsReplyTo(datagram, Command::RFAReadData) && ++reply % 4 != 0;
    });
    Mark();
    const ReadDataResult* listing = Read("\\");
    EXPECT_EQ(listing->status, 253U);
    EXPECT_EQ(Timeline(Command::RFAConnect).back(), 60000);
    return listing;
  }
};

TEST_F(SlowRequestTest, FinishesLateAndOthersMeanwhileWaitOrAreWithdrawn) {
  const ReadDataResult* listing = ListSlowly();
  EXPECT_EQ(API_Search("")->deviceCount, 0U) << "nobody took it for 60 seconds";
  EXPECT_EQ(API_SetIpInterface(""), 253U);
  EXPECT_EQ(Timeline(Command::RFAConnect).back(), 180000);
  EXPECT_EQ(listing->status, 253U);
  EXPECT_EQ(listing->entryCount, 0U);
  EXPECT_EQ(Connect(), 255U) << "posted while the listing still runs: no device is left";
  EXPECT_EQ(Timeline(Command::RFAConnect).back() / 1000, 224);
  EXPECT_EQ(listing->status, 0U);
  EXPECT_STREQ(listing->message, "Operation successful");
  EXPECT_EQ(listing->entryCount, 1U);
  EXPECT_TRUE(Sent(Command::Search).empty()) << "withdrawn requests never run";
  Search();
  EXPECT_EQ(Disconnect(), 0U);
}

TEST_F(SlowRequestTest, StoppingTheLibraryEndsEveryCallAtOnce) {
  const auto loseReplies = [&](Command command, uint16_t but) {
    Lose([=](const LoggedDatagram& reply) { return IsReplyTo(reply, command) && SequenceOf(reply.bytes) != but; });
  };
  const struct {
    const char* name;
    std::function<void()> prepare;
    std::function<uint32_t()> run;
  } calls[] = {
      {"awaits a reply", [&] { loseReplies(Command::RFAConnect, 0); }, Connect},
      {"awaits a packet", [&] { loseReplies(Command::RFAStartTransfer, 1); }, [&] { return Read("\\FILE")->status; }},
      {"awaits its turn", [&] { ListSlowly(); }, Disconnect}};
  for (const auto& call : calls) {
    SCOPED_TRACE(call.name);
    call.prepare();
    const auto hasEnded = std::make_shared<bool>(false);
    std::thread caller = *world.StartThread([&] { EXPECT_EQ(call.run(), 253U); }, hasEnded);
    world.Advance(5s);
    EXPECT_FALSE(*hasEnded);
    const Time before = world.Now();
    Stop();
    EXPECT_LT(world.Now() - before, 100ms);
    ASSERT_TRUE(*hasEnded) << "the call that was inside has returned";
    caller.join();
    const size_t sent = Sent().size();
    world.fate = nullptr;
    world.Advance(20s);
    EXPECT_EQ(Sent().size(), sent);
    Start();
    Search();
    EXPECT_EQ(List("\\"), std::vector<std::string>{"FILE"}) << "a library that is loaded again works";
  }
}

}  // namespace
}  // namespace media_adapter::sim

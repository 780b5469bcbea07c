// What the library takes from the network and what it drops: replies, statuses, search answers and test reports. One
// simulated device answers; the network changes what it says, or the tests speak for it.
#include <gtest/gtest.h>

#include <set>

#include "tests/support/device_requests.h"

namespace media_adapter::sim {
namespace {

constexpr Endpoint kDevice{{127, 0, 0, 11}, wire::kDevicePort};
using Change = std::function<void(Datagram&, Endpoint&)>;

void Set16(Datagram& bytes, size_t offset, uint16_t value) { WriteU16(bytes, offset, value); }

Change ToBody(const Bytes& body) {
  return [=](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, body); };
}
Change ToStatus(uint32_t status) {
  return [=](Datagram& bytes, Endpoint&) { bytes = WithStatus(bytes, status); };
}

// What makes a good datagram of a device one that is not awaited; a search is answered from anywhere.
const struct {
  const char* rule;
  Change change;
  bool isForSearch = true;
} kRules[] = {
    {"port", [](Datagram&, Endpoint& sender) { ++sender.port; }},
    {"address", [](Datagram&, Endpoint& sender) { ++sender.address[3]; }, false},
    {"shorter than a header", [](Datagram& bytes, Endpoint&) { bytes.resize(wire::kHeaderSize - 1); }},
    {"longer than any datagram", ToBody(Bytes(wire::kMaxBodySize + 1))},
    {"magic", [](Datagram& bytes, Endpoint&) { bytes[wire::kMagicOffset + 3] = 0; }},
    {"format", [](Datagram& bytes, Endpoint&) { ++bytes[wire::kFormatOffset]; }},
    {"sender kind", [](Datagram& bytes, Endpoint&) { bytes[wire::kSenderOffset] = wire::kHostSender; }},
    {"counter", [](Datagram& bytes, Endpoint&) { ++bytes[wire::kSequenceOffset]; }},
    {"tag", [](Datagram& bytes, Endpoint&) { bytes[wire::kSequenceOffset + 1] ^= 0x80; }},
    {"length too large", [](Datagram& bytes, Endpoint&) { ++bytes[wire::kLengthOffset]; }},
    {"length too small", [](Datagram& bytes, Endpoint&) { --bytes[wire::kLengthOffset]; }},
    {"hardware address", [](Datagram& bytes, Endpoint&) { ++bytes[wire::kSourceMacOffset + 5]; }, false},
    {"command", [](Datagram& bytes, Endpoint&) { bytes[wire::kCommandOffset] ^= 2; }},
    {"a request's command", [](Datagram& bytes, Endpoint&) { --bytes[wire::kCommandOffset]; }},
};

class ReceptionTest : public DeviceTest {
 protected:
  // All, or those of these commands.
  static std::vector<DeviceRequest> Exchanges(const std::set<Command>& commands = {}) {
    std::vector<DeviceRequest> requests = DeviceRequests();
    std::erase_if(requests, [&](const DeviceRequest& request) {
      return !request.exchange || (!commands.empty() && !commands.contains(request.exchange->command));
    });
    return requests;
  }
  // The exchange whose first request is answered so ends well, by the reply to its resend, which comes on time.
  void ExpectDropped(const DeviceRequest& request, const Change& change) {
    SCOPED_TRACE(request.name);
    const Command command = request.exchange->command;
    world.fate = [&, requests = 0](const LoggedDatagram& datagram) mutable -> Fate {
      requests += IsRequest(datagram, command) ? 1 : 0;
      if (!IsReplyTo(datagram, command) || requests > 1) return {};
      Fate fate{.bytes = datagram.bytes, .sender = datagram.sender};
      change(*fate.bytes, *fate.sender);
      return fate;
    };
    Mark();
    EXPECT_EQ(RunWell(request), 0U);
    const auto times = Timeline(command);
    ASSERT_GE(times.size(), 3U);
    EXPECT_EQ(times[1], request.exchange->whenUnanswered[1]);
    EXPECT_EQ(Sent(command)[1].bytes, Sent(command)[0].bytes);
    world.fate = nullptr;
  }
};

TEST_F(ReceptionTest, EveryRuleOfTheHeaderDropsTheReply) {
  for (const auto& rule : kRules) {
    SCOPED_TRACE(rule.rule);
    for (const auto& request : Exchanges()) ExpectDropped(request, rule.change);
  }
}

TEST_F(ReceptionTest, BusyStatusesAreWaitedForWhereStorageIsMeant) {
  for (const auto& request : Exchanges()) {
    for (const uint32_t status : {5U, 6U, 49U, 7U, 77U}) {
      SCOPED_TRACE(status);
      if (request.exchange->waitsWhenBusy && (status == 5 || status == 6 || status == 49)) {
        ExpectDropped(request, ToStatus(status));
        continue;
      }
      ChangeReplies(request.exchange->command, 1, ToStatus(status));
      Mark();
      EXPECT_EQ(RunWell(request), status);
      EXPECT_EQ(Sent(request.exchange->command).size(), 1U);
    }
  }
}

TEST_F(ReceptionTest, MalformedBodiesAreDroppedWhole) {
  const auto dropped = [&](Command command, const Bytes& body) {
    for (const auto& request : Exchanges({command})) ExpectDropped(request, ToBody(body));
  };
  dropped(Command::SetTest, Bytes(4));
  dropped(Command::RFAReadData, Item(wire::kFileAccessClass, wire::kDataIndex, {}));
  dropped(Command::RFAReadData, Item(wire::kFileAccessClass, wire::kDataIndex, Bytes(1025)));
  dropped(Command::RFAStartTransfer, Item(wire::kFileAccessClass, wire::kDataIndex, {}));
  dropped(Command::RFAStartTransfer, Item(wire::kFileAccessClass, wire::kDataIndex, Bytes(1401)));
  // A wrong value; an end in an item's header; an end in the value of an unknown element.
  for (const Bytes& end : {Item(2, 1, {0}), Bytes{8, 1, 1}, Bytes{99, 99, 2, 0, 1}}) {
    const auto change = [&](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, Join({BodyOf(bytes), end})); };
    for (const auto& request :
         Exchanges({Command::GetConfiguration, Command::RFAConnect, Command::RFAReadData, Command::RFAStartTransfer})) {
      ExpectDropped(request, change);
    }
  }
  // Bodies that are not read may hold anything; so may the body of a reply that reports a failure.
  for (const auto command : {Command::SetConfiguration, Command::RFADisconnect, Command::RFAWriteData}) {
    ChangeReplies(command, 1, ToBody(Bytes(3, 9)));
    for (const auto& request : Exchanges({command})) EXPECT_EQ(RunWell(request), 0U);
  }
  ChangeReplies(Command::GetConfiguration, 1,
                [](Datagram& bytes, Endpoint&) { bytes = WithStatus(WithBody(bytes, Bytes(3, 9)), 2); });
  EXPECT_EQ(RunWell(DeviceRequests()[0]), 2U);
}

// ---- Test reports

class TestReportTest : public ReceptionTest {
 protected:
  static constexpr uint8_t kClass = wire::kTestClass, kFirst = 13, kSecond = 14, kThird = 15;  // the counters

  void SetUp() override {
    ReceptionTest::SetUp();
    TestParameters parameters{};
    EXPECT_EQ(API_SetTest(&parameters, 0, kPassword, 1)->testData, nullptr);
    Lose(IsReport);  // the device's own
    parameters.element15_7 = 77;
    data_ = API_SetTest(&parameters, 0, kPassword, 0)->testData;
    ASSERT_NE(data_, nullptr);
    EXPECT_EQ(data_->parameters.element15_7, 77);
  }
  static bool IsReport(const LoggedDatagram& datagram) {
    return CommandOf(datagram.bytes) == static_cast<uint8_t>(Command::TestReport);
  }
  Datagram Report(const Bytes& body) {
    Datagram report = ReplyOf(world.Log().front().bytes);
    report[wire::kCommandOffset] = static_cast<uint8_t>(Command::TestReport);
    Set16(report, wire::kSequenceOffset, 0x1234);
    std::ranges::copy(device->Identity().mac, report.begin() + wire::kSourceMacOffset);
    return WithBody(report, body);
  }
  // The counters after a report was heard.
  std::vector<uint32_t> Hear(
      const Bytes& body, const Change& change = [](Datagram&, Endpoint&) {}) {
    Datagram report = Report(body);
    Endpoint sender = kDevice;
    change(report, sender);
    world.Inject(sender, report);
    world.Advance(1ms);
    EXPECT_EQ(data_->unused, 0U);
    return {data_->counters, data_->counters + 3};
  }
  const TestData* data_ = nullptr;
};

TEST_F(TestReportTest, AreTakenAtAnyTimeFromTheLastDeviceOnly) {
  using Counters = std::vector<uint32_t>;
  EXPECT_EQ(Hear(Item(kClass, kFirst, {1, 0, 0, 1})), (Counters{0x01000001, 0, 0}));
  const Counters good = {0x01000001, 4, 3};
  EXPECT_EQ(Hear(Join({Item(kClass, kThird, {3, 0, 0, 0}), Item(kClass, kSecond, {4, 0, 0, 0})})), good);
  const Bytes two = Item(kClass, kFirst, {2, 0, 0, 0});
  for (const auto& rule : kRules) {
    if (rule.rule == std::string("counter") || rule.rule == std::string("tag")) continue;  // the device's own
    EXPECT_EQ(Hear(two, rule.change), good) << rule.rule;
  }
  EXPECT_EQ(Hear(two, ToStatus(1)), good);
  EXPECT_EQ(Hear(Item(kClass, kFirst, Bytes(12, 2))), good) << "60 bytes, but the element's size is wrong";
  EXPECT_EQ(Hear(Item(kClass, kFirst, {2, 0})), good);
  EXPECT_EQ(Hear(Join({two, Item(kClass, 2, {})})), good) << "56 bytes are no report";
  EXPECT_EQ(Hear(Item(kClass, kFirst - 1, Bytes(4, 9))), good) << "no counter";
  EXPECT_EQ(Hear(Item(kClass, kThird + 1, Bytes(4, 9))), good) << "no counter";
  EXPECT_EQ(Hear(Item(99, kFirst, Bytes(4, 9))), good) << "no counter";
  EXPECT_EQ(Hear(two), (Counters{2, 4, 3}));
}

TEST_F(TestReportTest, LeaveTheOutstandingRequestAlone) {
  world.fate = [&](const LoggedDatagram& datagram) -> Fate {
    if (!IsRequest(datagram, Command::GetConfiguration)) return {.copies = IsReport(datagram) ? 0U : 1U};
    world.Inject(kDevice, Report(Item(kClass, kFirst, {9, 0, 0, 0})), 100ms);
    return {.copies = 0};
  };
  Mark();
  EXPECT_EQ(RunWell(DeviceRequests()[0]), 253U);
  EXPECT_EQ(Timeline(Command::GetConfiguration), kSettingsTimes);
  EXPECT_EQ(data_->counters[0], 9U);
}

// ---- Search

class SearchTest : public LibraryTest {
 protected:
  // Lets every search be answered so. A device's last octet stands in its address and its hardware address.
  void Answer(
      uint8_t last, const Bytes& body, const Change& change = [](Datagram&, Endpoint&) {}) {
    answers_.push_back([=, this](const Datagram& request) {
      Datagram reply = WithBody(ReplyOf(request), body);
      std::ranges::copy(Bytes{2, 0, 0, 0, 0, last}, reply.begin() + wire::kSourceMacOffset);
      Endpoint sender{{127, 0, 0, last}, wire::kDevicePort};
      change(reply, sender);
      world.Inject(sender, reply, 1ms);
    });
    world.fate = [this](const LoggedDatagram& datagram) -> Fate {
      if (IsRequest(datagram, Command::Search)) {
        for (const auto& answer : answers_) answer(datagram.bytes);
      }
      return {};
    };
  }
  std::string Found(const char* filter) {
    const auto* result = API_Search(filter);
    std::string found;
    for (uint32_t i = 0; i < result->deviceCount; ++i) {
      found += std::to_string(result->devices[i].macAddress[5]) + " ";
    }
    return found;
  }

 private:
  std::vector<std::function<void(const Datagram&)>> answers_;
};

TEST_F(SearchTest, ListsEachDeviceOnceAndDropsAnswersThatAreNotGood) {
  Answer(21, Join({Item(0, 0, {'o', 'l', 'd'}), Item(0, 2, Bytes(16, 'n')), Item(0, 0, {}), Item(3, 3, {1})}));
  Answer(22, {});
  uint8_t last = 23;
  const Bytes good = Item(0, 2, {'a'});
  for (const auto& rule : kRules) {
    if (rule.isForSearch) Answer(last++, good, rule.change);
  }
  Answer(last++, good, ToStatus(5));
  for (const Bytes& body : {Item(8, 1, {15}), Item(2, 1, {0}), Bytes{0, 2, 5, 0, 'a'}}) Answer(last++, body);
  EXPECT_EQ(Found(""), "21 22 ");
  const DeviceEntry& entry = API_Search(std::string(16, 'n').c_str())->devices[0];
  EXPECT_EQ(Bytes(entry.name, entry.name + 16), Bytes(16, 'n'));
  EXPECT_EQ(entry.element0_0[0], 0) << "the last of two counts, also the empty one";
  EXPECT_EQ(Bytes(entry.macAddress, entry.macAddress + 6), (Bytes{2, 0, 0, 0, 0, 21}));
}

TEST_F(SearchTest, ListsFortyDevicesAtMost) {
  for (uint8_t last = 11; last < 53; ++last) Answer(last, {});
  EXPECT_EQ(API_Search("")->deviceCount, 40U);
  EXPECT_EQ(API_Search("")->devices[39].macAddress[5], 50);
}

TEST_F(SearchTest, AFilterKeepsExactNamesAndRenumbers) {
  const std::string names[] = {"other", "wanted", "Wanted", "wanted", "wanted2", "wante", "wanted by sixtee"};
  for (const auto& name : names) AddDevice(VolumeImage(16), name);
  EXPECT_EQ(Found("wanted"), "12 14 ");
  EXPECT_EQ(API_RFAConnect(0, kPassword, 1)->status, 0U);
  EXPECT_EQ(world.Log().back().sender.address[3], 14);
  EXPECT_EQ(API_RFAConnect(0, kPassword, 2)->status, 255U);
  EXPECT_EQ(Found("wanted by sixtee"), "17 ");
  EXPECT_EQ(Found("wanted by sixteen"), "");
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 255U);
  EXPECT_EQ(Found(""), "11 12 13 14 15 16 17 ");
  Mark();
  EXPECT_EQ(Found(nullptr), "");
  EXPECT_TRUE(Sent().empty());
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 255U);
}

}  // namespace
}  // namespace media_adapter::sim

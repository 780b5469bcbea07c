// What the library takes from the network and what it drops: replies, statuses, search answers, test reports, and the
// limits of every element.
#include <gtest/gtest.h>

#include "tests/support/library_fixture.h"

namespace media_adapter::sim {
namespace {

constexpr uint16_t kName = MEDIA_ADAPTER_ELEMENT(0, 2);
constexpr Endpoint kDevice{{127, 0, 0, 11}, 14001};
const TestParameters kTest{};
const ConfigurationData kSettings{};

void Set16(Datagram& bytes, size_t offset, uint16_t value) { WriteU16(bytes, offset, value); }

class ReceptionTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    AddAndSearch(TheVolume());
  }
  static const VolumeImage& TheVolume() {
    static const VolumeImage image = [] {
      VolumeBuilder builder({});
      builder.AddFile("/FILE", Pattern(5000));
      return builder.Build();
    }();
    return image;
  }
  uint32_t GetConfiguration() { return API_GetConfiguration(&kName, 1, 1, kPassword, 0)->status; }

  struct Exchange {
    Command command;
    std::function<uint32_t()> run;
    int64_t interval;  // of the first resend
    bool retriesWhenBusy;
  };
  std::vector<Exchange> Exchanges() {
    return {
        {Command::GetConfiguration, [this] { return GetConfiguration(); }, 1500, false},
        {Command::SetConfiguration, [] { return API_SetConfiguration(&kName, 1, &kSettings, 1, kPassword, 0)->status; },
         1500, false},
        {Command::SetTest, [] { return API_SetTest(&kTest, 1, kPassword, 0)->status; }, 1500, false},
        {Command::RFAConnect, [] { return API_RFAConnect(1, kPassword, 0)->status; }, 3000, true},
        {Command::RFADisconnect, [] { return API_RFADisconnect(1, kPassword, 0)->status; }, 1500, true},
        {Command::RFAReadData, [this] { return Read("\\nothing")->status == 244 ? 0U : 1U; }, 2000, true},
        {Command::RFAStartTransfer, [this] { return Read("\\FILE")->status; }, 2000, true},
    };
  }
  // The exchange whose first request is answered so ends well, by the reply to its resend, which comes on time.
  void ExpectDropped(const Exchange& exchange, const std::function<void(Datagram&, Endpoint&)>& change) {
    SCOPED_TRACE(static_cast<int>(exchange.command));
    world.fate = [&, requests = 0](const LoggedDatagram& datagram, size_t) mutable -> Fate {
      requests += IsRequest(datagram, exchange.command) ? 1 : 0;
      if (!IsReplyTo(datagram, exchange.command) || requests > 1) return {};
      Fate fate{.bytes = datagram.bytes, .sender = datagram.sender};
      change(*fate.bytes, *fate.sender);
      return fate;
    };
    Mark();
    EXPECT_EQ(exchange.run(), 0U);
    const auto times = Timeline(exchange.command);
    ASSERT_GE(times.size(), 3U);
    EXPECT_EQ(times[1], exchange.interval);
    EXPECT_EQ(Sent(exchange.command)[1].bytes, Sent(exchange.command)[0].bytes);
    world.fate = nullptr;
  }
};

TEST_F(ReceptionTest, EveryRuleOfTheHeaderDropsTheReply) {
  const struct {
    const char* rule;
    std::function<void(Datagram&, Endpoint&)> change;
  } rules[] = {
      {"port", [](Datagram&, Endpoint& sender) { sender.port = 14002; }},
      {"address", [](Datagram&, Endpoint& sender) { sender.address[3] = 12; }},
      {"shorter than a header", [](Datagram& bytes, Endpoint&) { bytes.resize(43); }},
      {"longer than any datagram", [](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, Bytes(1501)); }},
      {"magic", [](Datagram& bytes, Endpoint&) { bytes[3] = 0; }},
      {"format", [](Datagram& bytes, Endpoint&) { bytes[5] = 2; }},
      {"sender kind", [](Datagram& bytes, Endpoint&) { bytes[6] = 2; }},
      {"counter", [](Datagram& bytes, Endpoint&) { bytes[8] += 16; }},
      {"tag", [](Datagram& bytes, Endpoint&) { bytes[9] ^= 0x80; }},
      {"length too large", [](Datagram& bytes, Endpoint&) { ++bytes[10]; }},
      {"length too small", [](Datagram& bytes, Endpoint&) { --bytes[10]; }},
      {"hardware address", [](Datagram& bytes, Endpoint&) { ++bytes[17]; }},
      {"command", [](Datagram& bytes, Endpoint&) { bytes[4] ^= 2; }},
      {"a request's command", [](Datagram& bytes, Endpoint&) { --bytes[4]; }},
  };
  for (const auto& rule : rules) {
    SCOPED_TRACE(rule.rule);
    for (const auto& exchange : Exchanges()) ExpectDropped(exchange, rule.change);
  }
}

TEST_F(ReceptionTest, BusyStatusesAreWaitedForWhereStorageIsMeant) {
  for (const auto& exchange : Exchanges()) {
    for (const uint32_t status : {5U, 6U, 49U, 7U, 77U}) {
      SCOPED_TRACE(status);
      const auto change = [&](Datagram& bytes, Endpoint&) { bytes = WithStatus(bytes, status); };
      if (exchange.retriesWhenBusy && (status == 5 || status == 6 || status == 49)) {
        ExpectDropped(exchange, change);
        continue;
      }
      ChangeReplies(exchange.command, 1, change);
      Mark();
      EXPECT_EQ(exchange.run(), exchange.command == Command::RFAReadData ? 1U : status);
      EXPECT_EQ(Sent(exchange.command).size(), 1U);
    }
  }
}

TEST_F(ReceptionTest, MalformedBodiesAreDroppedWhole) {
  const auto exchanges = Exchanges();
  const auto dropped = [&](Command command, const Bytes& body, bool isAppended = false) {
    const auto exchange = std::ranges::find(exchanges, command, &Exchange::command);
    ExpectDropped(*exchange, [&](Datagram& bytes, Endpoint&) {
      bytes = WithBody(bytes, Join({isAppended ? BodyOf(bytes) : Bytes(), body}));
    });
  };
  dropped(Command::SetTest, Bytes(4));
  dropped(Command::RFAConnect, Item(16, 5, Bytes(4)), true);
  dropped(Command::RFAConnect, Item(16, 4, Bytes(3, 1)));
  dropped(Command::RFAConnect, Item(16, 5, Bytes(5, 1)));
  dropped(Command::RFAReadData, Item(16, 3, {}));
  dropped(Command::RFAReadData, Item(16, 3, Bytes(1025)));
  dropped(Command::RFAStartTransfer, Item(16, 3, {}));
  dropped(Command::RFAStartTransfer, Item(16, 3, Bytes(1401)));
  for (const auto& exchange : exchanges) {
    if (exchange.command == Command::SetConfiguration || exchange.command == Command::RFADisconnect) continue;
    if (exchange.command != Command::SetTest) dropped(exchange.command, Item(2, 1, {0}), true);
    dropped(exchange.command, {8, 1, 1}, true);          // ends in the item's header
    dropped(exchange.command, {99, 99, 2, 0, 1}, true);  // ends in the value of an unknown element
  }
  // Good elements of a malformed reply are not stored either, and fields that no reply carries stay.
  ASSERT_EQ(GetConfiguration(), 0U);
  ChangeReplies(Command::GetConfiguration, 4, [](Datagram& bytes, Endpoint&) {
    bytes = WithBody(bytes, Join({Item(0, 2, {'x'}), Item(8, 4, {255, 0})}));
  });
  const auto* result = API_GetConfiguration(&kName, 1, 1, kPassword, 0);
  EXPECT_EQ(result->status, 253U);
  EXPECT_STREQ(reinterpret_cast<const char*>(result->configuration.element0_2), "device");
  // Bodies that are not read may hold anything; so may the body of a reply that reports a failure.
  ChangeReplies(Command::RFADisconnect, 1, [](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, Bytes(3, 9)); });
  EXPECT_EQ(API_RFADisconnect(0, kPassword, 0)->status, 0U);
  ChangeReplies(Command::GetConfiguration, 1,
                [](Datagram& bytes, Endpoint&) { bytes = WithStatus(WithBody(bytes, Bytes(3, 9)), 2); });
  EXPECT_EQ(GetConfiguration(), 2U);
}

TEST_F(ReceptionTest, ATransferStartsWithPacketOneExactly) {
  const auto exchange = Exchanges().back();
  for (const int offset : {1, 0x4000}) {
    ExpectDropped(exchange, [=](Datagram& bytes, Endpoint&) {
      Set16(bytes, 8, static_cast<uint16_t>(SequenceOf(bytes) + offset));
    });
  }
  ChangeReplies(Command::RFAStartTransfer, 1, [](Datagram& bytes, Endpoint&) { bytes = WithStatus(bytes, 3); });
  EXPECT_EQ(exchange.run(), 3U);
  // Later packets are numbered by 14 bits; the tag's bits say nothing there.
  world.fate = [](const LoggedDatagram& datagram, size_t) -> Fate {
    if (!IsReplyTo(datagram, Command::RFAStartTransfer) || SequenceOf(datagram.bytes) == 1) return {};
    Datagram bytes = datagram.bytes;
    Set16(bytes, 8, SequenceOf(bytes) | 0xC000);
    return {.bytes = bytes};
  };
  EXPECT_EQ(exchange.run(), 0U);
  EXPECT_EQ(Downloaded("FILE"), Pattern(5000));
}

TEST_F(ReceptionTest, ARunningTransferTakesEveryStatus) {
  for (const uint32_t status : {5U, 9U, 49U, 100U}) {
    world.fate = [&](const LoggedDatagram& datagram, size_t) -> Fate {
      if (!IsReplyTo(datagram, Command::RFAStartTransfer) || SequenceOf(datagram.bytes) != 3) return {};
      return {.bytes = WithStatus(datagram.bytes, status)};
    };
    uint32_t progress = 0;
    EXPECT_EQ(Read("\\FILE", {}, &progress)->status, status);
    EXPECT_EQ(progress, 100U);
    EXPECT_EQ(Downloaded("FILE"), Slice(Pattern(5000), 0, 2800));
  }
}

// ---- Test reports

class TestReportTest : public ReceptionTest {
 protected:
  void SetUp() override {
    ReceptionTest::SetUp();
    EXPECT_EQ(API_SetTest(&kTest, 0, kPassword, 1)->testData, nullptr);
    world.fate = [](const LoggedDatagram& datagram, size_t) -> Fate {
      return {.copies = CommandOf(datagram.bytes) == 11 ? 0U : 1U};  // the device's own reports stay out of the way
    };
    TestParameters parameters{};
    parameters.element15_7 = 77;
    const auto* result = API_SetTest(&parameters, 0, kPassword, 0);
    ASSERT_NE(result->testData, nullptr);
    EXPECT_EQ(result->testData->parameters.element15_7, 77);
    data_ = result->testData;
  }
  // The first counter after a report of `value`, changed by `change`, was heard.
  uint32_t Hear(uint8_t value, const std::function<void(Datagram&, Endpoint&)>& change = nullptr) {
    Datagram report(wire::kHeaderSize);
    WriteU32(report, wire::kMagicOffset, wire::kMagic);
    report[wire::kCommandOffset] = 11;
    report[wire::kFormatOffset] = report[wire::kSenderOffset] = 1;
    Set16(report, wire::kSequenceOffset, 0x1234);
    std::ranges::copy(Bytes{2, 0, 0, 0, 0, 11}, report.begin() + wire::kSourceMacOffset);
    report = WithBody(report, Item(15, 13, {value, 0, 0, 1}));
    Endpoint sender = kDevice;
    if (change) change(report, sender);
    world.Inject(sender, report);
    world.Advance(1ms);
    return data_->counters[0] & 0xFF;
  }
  const TestData* data_ = nullptr;
};

TEST_F(TestReportTest, AreTakenAtAnyTimeFromTheLastDeviceOnly) {
  EXPECT_EQ(Hear(1), 1U);
  EXPECT_EQ(data_->counters[0], 0x01000001U);
  EXPECT_EQ(Hear(2,
                 [](Datagram& bytes, Endpoint&) {
                   bytes = WithBody(bytes, Join({Item(15, 15, {3, 0, 0, 0}), Item(15, 14, {4, 0, 0, 0})}));
                 }),
            1U);
  EXPECT_EQ(data_->counters[2], 3U);
  EXPECT_EQ(data_->counters[1], 4U);
  EXPECT_EQ(Hear(2, [](Datagram&, Endpoint& sender) { sender.port = 1; }), 1U);
  EXPECT_EQ(Hear(2, [](Datagram&, Endpoint& sender) { sender.address[3] = 12; }), 1U);
  EXPECT_EQ(Hear(2, [](Datagram& bytes, Endpoint&) { ++bytes[17]; }), 1U);
  EXPECT_EQ(Hear(2, [](Datagram& bytes, Endpoint&) { ++bytes[10]; }), 1U);
  EXPECT_EQ(Hear(2, [](Datagram& bytes, Endpoint&) { bytes = WithStatus(bytes, 1); }), 1U);
  EXPECT_EQ(Hear(2, [](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, Item(15, 13, {2, 0})); }), 1U);
  EXPECT_EQ(Hear(2,
                 [](Datagram& bytes, Endpoint&) {
                   bytes = WithBody(bytes, Item(15, 13, {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
                 }),
            1U)
      << "60 bytes, but the element's size is wrong";
  EXPECT_EQ(Hear(2,
                 [](Datagram& bytes, Endpoint&) {
                   bytes = WithBody(bytes, Join({Item(15, 13, {2, 0, 0, 0}), Item(15, 2, {})}));
                 }),
            1U)
      << "56 bytes are no report";
  EXPECT_EQ(Hear(2), 2U);
}

TEST_F(TestReportTest, LeaveTheOutstandingRequestAlone) {
  const auto ownFate = world.fate;
  world.fate = [&](const LoggedDatagram& datagram, size_t ordinal) -> Fate {
    if (IsRequest(datagram, Command::GetConfiguration)) {
      Datagram report = WithBody(datagram.bytes, Item(15, 13, {9, 0, 0, 0}));
      report[wire::kCommandOffset] = 11;
      report[wire::kSenderOffset] = 1;
      std::ranges::copy(Bytes{2, 0, 0, 0, 0, 11}, report.begin() + wire::kSourceMacOffset);
      world.Inject(kDevice, report, 100ms);
      return {.copies = 0};
    }
    return ownFate(datagram, ordinal);
  };
  Mark();
  EXPECT_EQ(GetConfiguration(), 253U);
  EXPECT_EQ(Timeline(Command::GetConfiguration), (Milliseconds{0, 1500, 3000, 4500, 6000}));
  EXPECT_EQ(data_->counters[0], 9U);
}

// ---- Search

class SearchTest : public LibraryTest {
 protected:
  // Lets every search be answered so. A device's last octet stands in its address and its hardware address.
  void Answer(uint8_t last, const Bytes& body, const std::function<void(Datagram&, Endpoint&)>& change = nullptr) {
    answers_.push_back([=, this](const Datagram& request) {
      Datagram reply = WithBody(request, body);
      reply[wire::kCommandOffset] = 2;
      reply[wire::kSenderOffset] = 1;
      std::ranges::copy(Bytes{2, 0, 0, 0, 0, last}, reply.begin() + wire::kSourceMacOffset);
      Endpoint sender{{127, 0, 0, last}, 14001};
      if (change) change(reply, sender);
      world.Inject(sender, reply, 1ms);
    });
    world.fate = [this](const LoggedDatagram& datagram, size_t) -> Fate {
      if (IsRequest(datagram, Command::Search)) {
        for (const auto& answer : answers_) answer(datagram.bytes);
      }
      return {};
    };
  }
  static Bytes Named(const std::string& name) { return Item(0, 2, Bytes(name.begin(), name.end())); }
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

TEST_F(SearchTest, ListsEachDeviceOnceAndForgetsNothingOfItsAnswer) {
  Answer(21, Join({Item(0, 0, Bytes(16, 'a')), Item(0, 1, {1, 2, 3}), Named("sixteen letters!"),
                   Item(1, 0, {127, 0, 0, 21}), Item(8, 0, Bytes(32, 's')), Item(8, 1, {14}), Item(8, 6, {65}),
                   Item(8, 14, {10}), Item(9, 0, {32}), Item(3, 3, {1}), Item(2, 1, {14}), Item(0, 0, {})}));
  Answer(22, {});
  EXPECT_EQ(Found(""), "21 22 ");
  const DeviceEntry entry = API_Search("sixteen letters!")->devices[0];
  const auto* bytes = reinterpret_cast<const uint8_t*>(&entry);
  Bytes expected(82);
  std::ranges::copy(std::string("sixteen letters!"), expected.begin());
  expected[16] = 10;
  std::ranges::copy(Bytes{1, 2, 3}, expected.begin() + 33);  // the empty text in the end has cleared (0,0)
  expected[37] = 65;
  std::fill_n(expected.begin() + 38, 32, uint8_t{'s'});
  expected[70] = 14;
  std::ranges::copy(Bytes{127, 0, 0, 21, 32, 2, 0, 0, 0, 0, 21}, expected.begin() + 71);
  EXPECT_EQ(Bytes(bytes, bytes + 82), expected);
}

TEST_F(SearchTest, DropsAnswersThatAreNotGood) {
  Answer(21, Named("a"), [](Datagram& bytes, Endpoint&) { bytes = WithStatus(bytes, 5); });
  Answer(22, Named("a"), [](Datagram&, Endpoint& sender) { sender.port = 14002; });
  Answer(23, Named("a"), [](Datagram& bytes, Endpoint&) { bytes[4] = 6; });
  Answer(24, Named("a"), [](Datagram& bytes, Endpoint&) { ++bytes[8]; });
  Answer(25, Item(8, 1, {15}));
  Answer(26, Item(2, 1, {0}));
  Answer(27, {0, 2, 5, 0, 'a'});
  Answer(28, Named("a"), [](Datagram& bytes, Endpoint&) { bytes[6] = 2; });
  Answer(29, Named("a"), [](Datagram& bytes, Endpoint&) { ++bytes[10]; });
  Answer(30, {});
  EXPECT_EQ(Found(""), "30 ");
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

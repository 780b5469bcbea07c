// The exports: what they check before anything is sent, the statuses and their texts, the choice of the interface, the
// library's start and end, callers that share a text, forked children.
#include <gtest/gtest.h>

#include <set>

#include "tests/support/device_requests.h"

namespace media_adapter::sim {
namespace {

using ApiTest = DeviceTest;

// Every result begins with the status and its text.
std::string Outcome(const void* record) {
  const auto* result = static_cast<const StatusResult*>(record);
  return std::to_string(result->status) + " " + result->message;
}

TEST_F(ApiTest, ArgumentsAreCheckedInOrderAndNothingIsSent) {
  constexpr const char* kSeventeen = "seventeen letters";
  ASSERT_EQ(RunWell(DeviceRequests().front()), 0U);
  Mark();
  std::string longPath(MEDIA_ADAPTER_MAX_PATH + 1, 'x'), empty;
  std::set<const void*> records;
  const ConfigurationData* settings = nullptr;
  for (const DeviceRequest& request : DeviceRequests()) {
    SCOPED_TRACE(request.name);
    EXPECT_EQ(Outcome(request.run(nullptr, kSeventeen, 1)), "255 Device selected has not been found");
    EXPECT_EQ(Outcome(request.run(nullptr, kSeventeen, 0xFFFFFFFF)), "255 Device selected has not been found");
    const void* record = request.run(nullptr, kSeventeen, 0);
    EXPECT_EQ(Outcome(record), "254 Invalid password length");
    records.insert(record);
    if (settings == nullptr) settings = &static_cast<const ConfigurationResult*>(record)->configuration;
    if (request.path == nullptr) continue;
    for (char* path : {static_cast<char*>(nullptr), empty.data(), longPath.data()}) {
      EXPECT_EQ(Outcome(request.run(path, kPassword, 0)), "243 Invalid path length");
    }
  }
  EXPECT_EQ(records.size(), 4U) << "most share one result";
  EXPECT_STREQ(reinterpret_cast<const char*>(settings->element0_2), "device") << "left alone by what is not sent";
  EXPECT_EQ(API_GetConfiguration(nullptr, 1, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetIPConfiguration(nullptr, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetConfiguration(nullptr, 0, nullptr, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetTest(nullptr, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetTest(nullptr, 0, kPassword, 1)->status, 255U);
  API_Terminate(7);
  EXPECT_TRUE(Sent().empty());

  std::string path(MEDIA_ADAPTER_MAX_PATH, 'x');
  for (const DeviceRequest& request : DeviceRequests()) {
    EXPECT_EQ(Outcome(request.run(path.data(), "sixteen letters!", 0)), "3 Invalid password") << request.name;
  }
}

TEST_F(ApiTest, EveryKnownStatusHasItsTextAndTheOthersOneForAll) {
  std::map<uint32_t, std::string> texts;
  for (const Strings& row : Documented(R"(\| (\d+) \| ([^|]+) \|)")) {
    texts[static_cast<uint32_t>(std::stoul(row[1]))] = row[1] + " " + row[2];
  }
  ASSERT_EQ(texts.size(), 31U);
  uint32_t status = 0;
  ChangeReplies(Command::SetTest, SIZE_MAX, [&](Datagram& bytes, Endpoint&) { bytes = WithStatus(bytes, status); });
  const TestParameters test{};
  for (const uint32_t base : {0U, 256U, 0x01000000U, 0xFFFFFF00U}) {
    for (status = base; status - base < 256; ++status) {
      const auto known = texts.find(status);
      const std::string expected = known == texts.end() ? std::to_string(status) + " Unknown status" : known->second;
      EXPECT_EQ(Outcome(API_SetTest(&test, 0, kPassword, 0)), expected);
    }
  }
}

TEST_F(ApiTest, TheInterfaceIsChosenByAddress) {
  // Where a search goes out; port 0 when there is no socket.
  const auto search = [&] {
    Mark();
    API_Search("");
    return Sent().empty() ? Endpoint{} : Sent().front().sender;
  };
  Endpoint last = search();
  EXPECT_NE(last.port, 0) << "without a choice any interface serves";
  const struct {
    std::vector<const char*> texts;
    uint32_t status;
    uint8_t lastOctet;  // of the address that is used then
    bool isNew;         // another socket, or none
  } rows[] = {{{"127.0.0.1"}, 0, 1, true},
              {{"10.0.0", "1.2.3.4.5", "256.1.1.1", "1.2.3.-4", "127.0.0.1.", "x", nullptr}, 10, 1, false},
              {{"127.0.0.1"}, 0, 1, false},
              {{"192.168.1.20 "}, 0, 20, true},
              {{""}, 0, 1, true},
              {{"0.0.0.0", ""}, 0, 1, false},
              {{"10.0.0.x", "8.8.8.255", "127.0.0.1x"}, 11, 0, true}};
  for (const auto& row : rows) {
    for (const char* text : row.texts) {
      SCOPED_TRACE(text == nullptr ? "null" : text);
      EXPECT_EQ(API_SetIpInterface(text), row.status);
      const Endpoint now = search();
      EXPECT_EQ(now.address[3], row.lastOctet);
      EXPECT_TRUE(row.isNew ? now.port != last.port || now.port == 0 : now.port == last.port);
      last = now;
    }
  }
  world.failing.broadcast = true;
  EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 11U);
  world.failing.broadcast = false;
  EXPECT_EQ(API_SetIpInterface("192.168.1.20"), 0U);
  EXPECT_NE(search().port, 0);
  EXPECT_EQ(Slice(Sent().front().bytes, wire::kSourceMacOffset, 6), Bytes(world.adapter.begin(), world.adapter.end()))
      << "the first adapter's address whichever interface is used";
}

TEST(StartUp, FailuresAreShownAndEveryCallGivesUpAsItDoesBeforeAndAfter) {
  const std::pair<bool SimWorld::Failing::*, const char*> rows[] = {
      {&SimWorld::Failing::sockets, "Windows sockets initialization failed."},
      {&SimWorld::Failing::open, "Error : 2A\nCreate Socket"},
      {&SimWorld::Failing::broadcast, "Error : 2A\nSetSockOpt"},
      {&SimWorld::Failing::thread, "Error : 2A\nCreateThreadSocket"}};
  for (const auto& [what, text] : rows) {
    SimWorld world;
    world.failing.*what = true;
    const auto expectGivesUp = [&](Time wait) {
      const Time before = world.Now();
      EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 253U);
      EXPECT_EQ(world.Now() - before, wait);
      EXPECT_EQ(API_Search("")->deviceCount, 0U);
      EXPECT_EQ(API_RFAConnect(0, "", 0)->status, 253U);
      EXPECT_TRUE(wait != 0s || world.Now() == before) << "at once";
    };
    expectGivesUp(0s);  // before the library's time, and below after it
    EXPECT_TRUE(StartLibrary());
    expectGivesUp(199 * 50ms + 60s);
    EXPECT_EQ(world.errors, std::vector<std::string>{text});
    EXPECT_EQ(world.OpenSockets(), 0U);
    StopLibrary();
    expectGivesUp(0s);
    EXPECT_TRUE(world.Log().empty());
  }
}

// A caller's text is looked at in the caller's own turn: a second one sees what the first has left of it.
TEST_F(ApiTest, TwoThreadsMayPassTheSameText) {
  std::string text = "#\\";
  const auto write = [&] { return API_RFAWriteData("/proc/self/exe", text.data() + 1, 0, kPassword, 0)->status; };
  std::thread second;
  std::atomic<uint32_t> secondStatus = 0;
  world.fate = [&](const LoggedDatagram&) -> Fate {
    if (!second.joinable()) {
      second = std::thread([&] { secondStatus = write(); });
      std::this_thread::sleep_for(50ms);  // in real time: it is inside, and waits for its turn
    }
    return {};
  };
  EXPECT_EQ(write(), 249U) << "the program is larger than the volume";
  while (secondStatus == 0) world.Advance(1ms);
  second.join();
  EXPECT_EQ(secondStatus, 243U) << "nothing is left of the text";
  EXPECT_EQ(text, std::string("#\0", 2));
}

TEST_F(ApiTest, AForkedChildGivesUpAtOnceAndLeavesEverythingAlone) {
  const auto start = world.Now();
  world.processId = 2;
  for (const DeviceRequest& request : DeviceRequests()) EXPECT_EQ(RunWell(request), 253U) << request.name;
  EXPECT_EQ(API_SetIpInterface("192.168.1.20"), 253U);
  EXPECT_EQ(API_Search("")->deviceCount, 0U);
  StopLibrary();
  EXPECT_EQ(world.Now(), start);
  EXPECT_TRUE(Sent().empty());
  world.processId = 1;
  Search();
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 0U);
}

// One that was let go a moment ago runs the library's code until it has returned.
TEST_F(ApiTest, TheLastCallerHasTimeForItsReturn) {
  for (const auto since : {0ms, 15ms, 1000ms}) {
    API_Search(nullptr);
    world.Advance(since);
    const auto start = world.Now();
    Stop();
    EXPECT_EQ(world.Now() - start, std::max(20ms - since, 0ms));
    Start();
  }
}

// What a result held, what was found, read and reported, and the counter of requests.
TEST_F(ApiTest, ASecondStartBeginsWithNothing) {
  for (const DeviceRequest& request : DeviceRequests()) EXPECT_EQ(RunWell(request), 0U) << request.name;
  std::vector<std::span<const uint8_t>> records;
  const auto note = [&](const auto* record) {
    records.emplace_back(reinterpret_cast<const uint8_t*>(record), sizeof *record);
    return record;
  };
  const auto* settings = note(API_GetConfiguration(nullptr, 0, 0, kPassword, 1));
  note(Read("\\"));
  note(note(API_SetTest(nullptr, 0, kPassword, 1))->testData);
  note(API_RFAConnect(0, kPassword, 1));
  note(API_Search(""));
  const auto holdsNothing = [](std::span<const uint8_t> bytes) {
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
  };
  EXPECT_TRUE(std::ranges::none_of(records, holdsNothing));
  Stop();
  world.failing.thread = true;
  StartLibrary();
  EXPECT_TRUE(std::ranges::all_of(records, holdsNothing));
  const Time before = world.Now();
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 253U);
  EXPECT_EQ(world.Now() - before, 199 * 50ms + 60s) << "no worker is ready";
  StopLibrary();
  world.errors.clear();
  world.failing.thread = false;
  Start();
  Mark();
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 255U);
  API_Search("");
  EXPECT_EQ(SequenceOf(Sent().front().bytes), 0);
  EXPECT_EQ(API_GetConfiguration(nullptr, 0, 0, kPassword, 0)->status, 0U);
  note(&settings->configuration);
  EXPECT_TRUE(holdsNothing(records.back()));
}

}  // namespace
}  // namespace media_adapter::sim

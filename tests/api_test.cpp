// several threads calling at once.
#include <gtest/gtest.h>

#include <array>
#include <set>

#include "tests/support/library_fixture.h"

namespace media_adapter::sim {
namespace {

using ApiTest = LibraryTest;

constexpr const char* kSeventeen = "seventeen letters";

// Every export that addresses a device.
struct Call {
  const char* name;
  std::function<const void*(const char* password, uint32_t device, char* path)> run;
  bool hasPath = false;
};

const std::vector<Call>& Calls() {
  static const uint16_t element = 0;
  static const IpConfiguration ip{};
  static const ConfigurationData settings{};
  static const TestParameters test{};
  static const std::vector<Call> calls = {
      {"GetConfiguration", [](auto p, auto d, auto) { return API_GetConfiguration(&element, 1, 0, p, d); }},
      {"SetIPConfiguration", [](auto p, auto d, auto) { return API_SetIPConfiguration(&ip, 0, p, d); }},
      {"SetConfiguration", [](auto p, auto d, auto) { return API_SetConfiguration(&element, 1, &settings, 0, p, d); }},
      {"SetTest", [](auto p, auto d, auto) { return API_SetTest(&test, 0, p, d); }},
      {"RFAConnect", [](auto p, auto d, auto) { return API_RFAConnect(0, p, d); }},
      {"RFAReadData", [](auto p, auto d, auto path) { return API_RFAReadData(path, path, 0, p, d); }, true},
      {"RFADelete", [](auto p, auto d, auto path) { return API_RFADelete(path, 0, p, d); }, true},
      {"RFAWriteData", [](auto p, auto d, auto path) { return API_RFAWriteData("x", path, 0, p, d); }, true},
      {"RFAWriteData local",
       [](auto p, auto d, auto path) {
         std::string folder = "\\";
         return API_RFAWriteData(path, folder.data(), 0, p, d);
       },
       true},
      {"RFAFormat", [](auto p, auto d, auto) { return API_RFAFormat(0, p, d); }},
      {"RFACreateDirectory", [](auto p, auto d, auto path) { return API_RFACreateDirectory(path, 0, p, d); }, true},
      {"RFADisconnect", [](auto p, auto d, auto) { return API_RFADisconnect(0, p, d); }},
  };
  return calls;
}

// Every such block begins with the status and its text.
std::string Outcome(const void* block) {
  const auto* result = static_cast<const StatusResult*>(block);
  return std::to_string(result->status) + " " + result->message;
}

TEST_F(ApiTest, ArgumentsAreCheckedInOrderAndNothingIsSent) {
  AddAndSearch();
  std::string longPath(260, 'x');
  std::string empty;
  for (const Call& call : Calls()) {
    SCOPED_TRACE(call.name);
    EXPECT_EQ(Outcome(call.run(kSeventeen, 1, nullptr)), "255 Device selected has not been found");
    EXPECT_EQ(Outcome(call.run(kSeventeen, 0xFFFFFFFF, nullptr)), "255 Device selected has not been found");
    EXPECT_EQ(Outcome(call.run(kSeventeen, 0, nullptr)), "254 Invalid password length");
    if (!call.hasPath) continue;
    for (char* path : {static_cast<char*>(nullptr), empty.data(), longPath.data()}) {
      EXPECT_EQ(Outcome(call.run(kPassword, 0, path)), "243 Invalid path length");
    }
  }
  EXPECT_EQ(API_GetConfiguration(nullptr, 1, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetIPConfiguration(nullptr, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetConfiguration(nullptr, 0, nullptr, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetTest(nullptr, 0, kPassword, 0)->status, 1U);
  EXPECT_EQ(API_SetTest(nullptr, 0, kPassword, 1)->status, 255U);
  EXPECT_TRUE(Sent().empty());

  std::string path(259, 'x');
  for (const Call& call : Calls()) {
    EXPECT_EQ(Outcome(call.run("sixteen letters!", 0, path.data())), "3 Invalid password") << call.name;
  }
}

TEST_F(ApiTest, AFailedCheckLeavesTheRestOfTheBlockAlone) {
  AddAndSearch();
  const uint16_t element = MEDIA_ADAPTER_ELEMENT(0, 2);
  const auto* result = API_GetConfiguration(&element, 1, 0, kPassword, 0);
  EXPECT_EQ(result->status, 0U);
  EXPECT_STREQ(reinterpret_cast<const char*>(result->configuration.element0_2), "device");
  API_Search(nullptr);
  EXPECT_EQ(API_GetConfiguration(&element, 1, 0, kPassword, 0)->status, 255U);
  EXPECT_STREQ(reinterpret_cast<const char*>(result->configuration.element0_2), "device");
  API_Terminate(7);
  Search();
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 0U);
}

TEST_F(ApiTest, EveryKnownStatusHasItsText) {
  AddAndSearch();
  const TestParameters test{};
  uint32_t status = 0;
  world.fate = [&](const LoggedDatagram& datagram, size_t) -> Fate {
    if (!IsReplyTo(datagram, Command::SetTest)) return {};
    return {.bytes = WithStatus(datagram.bytes, status)};
  };
  const std::map<uint32_t, std::string> samples = {{0, "Operation successful"},
                                                   {9, "One or more packets were not received"},
                                                   {49, "Mass Storage Device cannot be accessed"},
                                                   {236, "Specified name is already in use"},
                                                   {245, "First cluster of root directory is not cluster 2"},
                                                   {248, "Invalid sector signature"},
                                                   {255, "Device selected has not been found"},
                                                   {10, "Unknown status"},
                                                   {20, "Unknown status"},
                                                   {256, "Unknown status"},
                                                   {0x01000000, "Unknown status"}};
  for (const auto& [code, text] : samples) {
    status = code;
    const auto* result = API_SetTest(&test, 0, kPassword, 0);
    EXPECT_EQ(result->status, code);
    EXPECT_EQ(result->message, text);
  }
  std::set<std::string> texts;
  for (status = 0; status < 256; ++status) texts.insert(API_SetTest(&test, 0, kPassword, 0)->message);
  EXPECT_EQ(texts.size(), 32U) << "31 known texts and the one for all others";
}

TEST_F(ApiTest, TheInterfaceIsChosenByAddress) {
  const auto port = [&] {
    Mark();
    API_Search("");
    return Sent().empty() ? 0 : Sent().front().sender.port;
  };
  const auto address = [&] { return Sent().front().sender.address[3]; };
  EXPECT_NE(port(), 0) << "without a choice any interface serves";
  EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 0U);
  const auto first = port();
  for (const char* refused : {"10.0.0", "1.2.3.4.5", "300.1.1.1", "1.2.3.-4", "127.0.0.1.", "x"}) {
    EXPECT_EQ(API_SetIpInterface(refused), 10U) << refused;
  }
  EXPECT_EQ(API_SetIpInterface(nullptr), 10U);
  EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 0U);
  EXPECT_EQ(port(), first) << "bound already: the socket stays";
  EXPECT_EQ(API_SetIpInterface("192.168.1.20 "), 0U);
  const auto second = port();
  EXPECT_NE(second, first);
  EXPECT_EQ(address(), 20);
  EXPECT_EQ(API_SetIpInterface(""), 0U);
  EXPECT_EQ(API_SetIpInterface("0.0.0.0"), 0U);
  const auto third = port();
  EXPECT_NE(third, second);
  EXPECT_EQ(API_SetIpInterface(""), 0U);
  EXPECT_EQ(port(), third);
  for (const char* unbindable : {"10.0.0.x", "8.8.8.8", "127.0.0.1x"}) {
    EXPECT_EQ(API_SetIpInterface(unbindable), 11U) << unbindable;
    EXPECT_EQ(port(), 0) << "there is no socket";
  }
  world.failing.broadcast = true;
  EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 11U);
  world.failing.broadcast = false;
  EXPECT_EQ(API_SetIpInterface("192.168.1.20"), 0U);
  EXPECT_NE(port(), 0);
  EXPECT_EQ(Slice(Sent().front().bytes, 12, 6), Bytes(world.adapter.begin(), world.adapter.end()))
      << "the first adapter's address whichever interface is used";
}

TEST(StartUp, FailuresAreShownAndEveryCallGivesUp) {
  const struct {
    bool SimWorld::Failing::*what;
    const char* text;
  } rows[] = {{&SimWorld::Failing::open, "Error : 2A\nCreate Socket"},
              {&SimWorld::Failing::broadcast, "Error : 2A\nSetSockOpt"},
              {&SimWorld::Failing::thread, "Error : 2A\nCreateThreadSocket"}};
  for (const auto& row : rows) {
    SimWorld world;
    world.failing.*row.what = true;
    EXPECT_TRUE(StartLibrary());
    const Time before = world.Now();
    EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 253U);
    EXPECT_EQ(world.Now() - before, 199 * 50ms + 60s);
    EXPECT_EQ(API_Search("")->deviceCount, 0U);
    EXPECT_EQ(API_RFAConnect(0, "", 0)->status, 253U);
    EXPECT_EQ(world.errors, std::vector<std::string>{row.text});
    EXPECT_EQ(world.OpenSockets(), 0U);
    StopLibrary();
    EXPECT_TRUE(world.Log().empty());
  }
}

// A caller's text is looked at in the caller's own turn: a second one sees what the first has left of it.
TEST_F(ApiTest, TwoThreadsMayPassTheSameText) {
  AddAndSearch(VolumeBuilder({}).Build());
  std::string text = "#\\";
  const auto write = [&] { return API_RFAWriteData("/proc/self/exe", text.data() + 1, 0, kPassword, 0)->status; };
  std::thread second;
  uint32_t secondStatus = 0;
  world.fate = [&](const LoggedDatagram&, size_t) -> Fate {
    if (!second.joinable()) {
      second = std::thread([&] { secondStatus = write(); });
      std::this_thread::sleep_for(50ms);  // in real time: it is inside, and waits for its turn
    }
    return {};
  };
  EXPECT_EQ(write(), 249U) << "the program is larger than the volume";
  {
    const SimWorld::Outside outside;
    second.join();
  }
  EXPECT_EQ(secondStatus, 243U) << "nothing is left of the text";
  EXPECT_EQ(text, std::string("#\0", 2));
}

TEST_F(ApiTest, AForkedChildGivesUpAtOnceAndLeavesEverythingAlone) {
  AddAndSearch();
  const auto start = world.Now();
  world.processId = 2;
  for (const Call& call : Calls()) {
    EXPECT_EQ(static_cast<const StatusResult*>(call.run(kPassword, 0, nullptr))->status, 253U) << call.name;
  }
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

TEST(StartUp, CallsBeforeAndAfterTheLibrarysTimeGiveUpAtOnce) {
  SimWorld world;
  for (int i = 0; i < 2; ++i) {
    const Time start = world.Now();
    EXPECT_EQ(API_RFAConnect(0, "", 0)->status, 253U);
    EXPECT_EQ(API_Search("")->deviceCount, 0U);
    EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 253U);
    EXPECT_EQ(world.Now(), start);
    StartLibrary();
    EXPECT_EQ(API_SetIpInterface("127.0.0.1"), 0U);
    StopLibrary();
  }
}

TEST_F(ApiTest, ThreadsMayCallAtOnce) {
  AddDevice(VolumeBuilder({}).Build());
  Search();
  const uint16_t element = MEDIA_ADAPTER_ELEMENT(0, 2);
  const TestParameters test{};
  uint32_t progress = 0;
  const std::array<std::function<bool()>, 4> calls = {
      [] { return API_RFAConnect(0, kPassword, 0)->status == 0; },
      [&] { return API_GetConfiguration(&element, 1, 1, kPassword, 0)->status == 0; },
      [&] {
        std::string folder = "x";
        return API_RFAReadDataExt("\\", folder.data(), 2, kPassword, 0, &progress)->status == 0;
      },
      [&] { return API_SetTest(&test, 3, kPassword, 0)->status == 0; }};
  std::atomic<int> good = 0;
  {
    SimWorld::Outside outside;
    std::vector<std::thread> threads;
    threads.reserve(calls.size());
    for (const auto& call : calls) {
      threads.emplace_back([&] {
        for (int i = 0; i < 50; ++i) good += call() ? 1 : 0;
      });
    }
    for (auto& thread : threads) thread.join();
  }
  EXPECT_EQ(good, 200);
}

}  // namespace
}  // namespace media_adapter::sim

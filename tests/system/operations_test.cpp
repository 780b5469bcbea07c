// Everything that an application does with devices, through the loaded library and over real datagrams. One library
// and one search serve all of it, which takes six seconds; the devices are one with a good network and three with a bad
// one.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tests/system/loaded_library.h"

namespace media_adapter::system_tests {
namespace {

using sim::Bytes;
using sim::Pattern;

class OperationsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    allocatedBefore = AllocatedBytes();
    library = std::make_unique<LoadedLibrary>();
    const auto* found = library->Search("");
    deviceCount = found->deviceCount;
    for (uint32_t i = 0; i < deviceCount; ++i) {
      const std::string name(reinterpret_cast<const char*>(found->devices[i].name));
      if (name == "operations") plain = i;
      if (name.starts_with("noisy")) noisy.push_back(i);
    }
    ASSERT_EQ(found->devices[plain].ipAddress[3], 41);
    ASSERT_GE(noisy.size(), 2U) << "a bad network may hide one";
  }
  static void TearDownTestSuite() { library.reset(); }

  uint32_t Write(const std::string& name, const Bytes& content, std::string folder) {
    sim::WriteWholeFile(files / name, content);
    return library->RFAWriteData((files / name).c_str(), folder.data(), 0, kPassword, plain)->status;
  }
  uint32_t Read(const std::string& path, uint32_t index = plain) {
    std::string folder = files.Path().string();
    return library->RFAReadData(path.c_str(), folder.data(), 0, kPassword, index)->status;
  }
  std::string List(const std::string& path) {
    std::string folder = ".", names;
    const auto* result = library->RFAReadData(path.c_str(), folder.data(), 0, kPassword, plain);
    EXPECT_EQ(result->status, 0U);
    for (uint32_t i = 0; i < result->entryCount; ++i) names += std::string(result->entries[i].name) + " ";
    return names;
  }

  sim::TempFolder files;
  static inline std::unique_ptr<LoadedLibrary> library;
  static inline size_t allocatedBefore = 0;  // bytes, when the library was not there yet
  static inline uint32_t plain = 0;          // the index of the device with a good network
  static inline uint32_t deviceCount = 0;
  static inline std::vector<uint32_t> noisy;
};

TEST_F(OperationsTest, FilesAndFolders) {
  const Bytes content = Pattern(200000);
  EXPECT_EQ(library->RFACreateDirectory("\\Long folder name", 0, kPassword, plain)->status, 0U);
  EXPECT_EQ(library->RFACreateDirectory("\\long FOLDER name", 0, kPassword, plain)->status, 236U);
  EXPECT_EQ(Write("A song.mp3", content, "\\Long folder name"), 0U);
  EXPECT_EQ(List("\\Long folder name"), ". .. A song.mp3 ");
  std::filesystem::remove(files / "A song.mp3");
  uint32_t progress = 0;
  std::string folder = files.Path().string();
  folder += static_cast<char>(std::filesystem::path::preferred_separator);
  EXPECT_EQ(
      library->RFAReadDataExt("\\Long folder name\\A song.mp3", folder.data(), 0, kPassword, plain, &progress)->status,
      0U);
  EXPECT_EQ(progress, 100U);
  EXPECT_EQ(folder.c_str(), files.Path().string());
  EXPECT_EQ(sim::ReadWholeFile(files / "A song.mp3"), content);
  EXPECT_EQ(library->RFADelete("\\Long folder name", 0, kPassword, plain)->status, 241U);
  EXPECT_EQ(library->RFADelete("\\Long folder name\\A song.mp3", 0, kPassword, plain)->status, 0U);
  EXPECT_EQ(Read("\\Long folder name\\A song.mp3"), 244U);
  EXPECT_EQ(library->RFAFormat(0, kPassword, plain)->status, 0U);
  EXPECT_EQ(List("\\"), "");
}

TEST_F(OperationsTest, ABadNetworkNeverGivesWrongBytes) {
  const Bytes content = sim::ReadWholeFile("file");  // every device holds it
  int complete = 0;
  for (const uint32_t index : noisy) {
    const uint32_t status = Read("\\file", index);
    EXPECT_TRUE(status == 0 || status == 253) << status << " from device " << index;
    if (status != 0) continue;
    EXPECT_EQ(sim::ReadWholeFile(files / "file"), content) << "from device " << index;
    ++complete;
  }
  EXPECT_GT(complete, 0);
}

TEST_F(OperationsTest, SettingsAndTest) {
  const uint16_t ids[] = {MEDIA_ADAPTER_ELEMENT(0, 0), MEDIA_ADAPTER_ELEMENT(8, 4), MEDIA_ADAPTER_ELEMENT(9, 3)};
  ConfigurationData settings{};
  std::fill_n(settings.element0_0, 16, uint8_t{'t'});
  settings.element8_4[1] = 4;
  settings.element9_3[0] = 9;
  EXPECT_EQ(library->SetConfiguration(ids, 3, &settings, 3, kPassword, plain)->status, 0U);
  settings.element8_4[1] = 0;
  EXPECT_STREQ(library->SetConfiguration(ids, 3, &settings, 3, kPassword, plain)->message, "Invalid element ID");
  const auto* result = library->GetConfiguration(ids, 2, 3, kPassword, plain);
  EXPECT_EQ(result->status, 0U);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(result->configuration.element0_0), 16), std::string(16, 't'));
  EXPECT_EQ(result->configuration.element8_4[1], 4);
  const IpConfiguration same{{127, 0, 0, 41}, {255, 0, 0, 0}, {127, 0, 0, 1}, 1, {}};
  EXPECT_EQ(library->SetIPConfiguration(&same, 0, kPassword, plain)->status, 0U);

  const TestParameters parameters{};
  const auto* test = library->SetTest(&parameters, 0, kPassword, plain);
  ASSERT_EQ(test->status, 0U);
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  for (const uint32_t& counter : test->testData->counters) {
    EXPECT_GT(std::atomic_ref(const_cast<uint32_t&>(counter)).load(), 0U) << "reported while nobody calls";
  }
}

TEST_F(OperationsTest, ConnectingAndPasswords) {
  EXPECT_EQ(library->RFAConnect(0, kPassword, plain)->status, 0U);
  EXPECT_EQ(library->RFADisconnect(0, kPassword, plain)->status, 0U);
  EXPECT_STREQ(library->RFAConnect(0, "wrong", plain)->message, "Invalid password");
  EXPECT_EQ(library->RFAConnect(0, kPassword, deviceCount)->status, 255U);
  library->Terminate(0);
}

TEST_F(OperationsTest, ThreadsMayCallAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      for (int calls = 0; calls < 50; ++calls) {
        library->RFAConnect(0, kPassword, plain);  // its record is everybody's
        EXPECT_EQ(library->SetIpInterface("127.0.0.1"), 0U);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(library->RFAConnect(0, kPassword, plain)->status, 0U);
}

TEST_F(OperationsTest, ABadInterfaceAndBack) {
  EXPECT_EQ(library->SetIpInterface("127.0.0.2x"), 11U);
  EXPECT_EQ(library->GetConfiguration(nullptr, 0, 0, kPassword, plain)->status, 253U);
  EXPECT_EQ(library->SetIpInterface("127.0.0.1"), 0U);
  EXPECT_EQ(library->GetConfiguration(nullptr, 0, 0, kPassword, plain)->status, 0U);
}

TEST_F(OperationsTest, MemoryStaysBelowOneMebibyte) {
  const auto connect = [](int times) {
    for (int i = 0; i < times; ++i) ASSERT_EQ(library->RFAConnect(0, kPassword, plain)->status, 0U);
  };
  connect(1000);
  const size_t after = AllocatedBytes();
  connect(10000);
  // The worker may still hold the last request, or the allocator keep its memory for it.
  EXPECT_LT(AllocatedBytes(), after + 10000) << "10000 requests leave nothing behind";
  const size_t own = LoadedLibrary::WritableBytes();
  EXPECT_GT(own, sizeof(ReadDataResult)) << "the result blocks lie in there";
  EXPECT_LT(own + after - allocatedBefore, 1U << 20);
}

}  // namespace
}  // namespace media_adapter::system_tests

// What an application relies on while it works with devices, through the loaded library and over real datagrams; every
// operation is done so by the tests of the command-line tool. One library and one search serve all of it, which takes
// six seconds; the devices are one with a good network and three with a bad one.
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
    for (uint32_t i = 0; i < found->deviceCount; ++i) {
      const std::string name(reinterpret_cast<const char*>(found->devices[i].name));
      if (name == "operations") plain = i;
      if (name.starts_with("noisy")) noisy.push_back(i);
    }
    ASSERT_EQ(found->devices[plain].ipAddress[3], 41);
    ASSERT_GE(noisy.size(), 2U) << "a bad network may hide one";
  }
  static void TearDownTestSuite() { library.reset(); }

  uint32_t Read(const std::string& path, uint32_t index) {
    std::string folder = files.Path().string();
    return library->RFAReadData(path.c_str(), folder.data(), 0, kPassword, index)->status;
  }

  sim::TempFolder files;
  static inline std::unique_ptr<LoadedLibrary> library;
  static inline size_t allocatedBefore = 0;  // bytes, when the library was not there yet
  static inline uint32_t plain = 0;          // the index of the device with a good network
  static inline std::vector<uint32_t> noisy;
};

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

// The library's coming and going: loaded and unloaded idle and in the middle of a request, the end of the process, and
// the end of the device.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "protocol/little_endian.h"
#include "tests/system/loaded_library.h"
#include "tests/system/simulated_device.h"

namespace media_adapter::system_tests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Unloads while `call` is inside. It has to come back at once.
void UnloadDuring(LoadedLibrary& library, const std::function<void()>& call) {
  std::atomic<bool> hasReturned = false;
  std::thread caller([&] {
    call();
    hasReturned = true;
  });
  std::this_thread::sleep_for(200ms);
  EXPECT_FALSE(hasReturned);
  const auto start = Clock::now();
  library.Unload();
  caller.join();
  EXPECT_LT(Clock::now() - start, 1s);
}

TEST(Lifetime, LoadsAndUnloadsIdle) {
  for (int i = 0; i < 20; ++i) LoadedLibrary().Unload();
  EXPECT_EQ(WritableBytes(LoadedLibrary::Path()), 0U) << "it has really gone";
}

TEST(Lifetime, UnloadsDuringASearch) {
  for (int i = 0; i < 5; ++i) {
    LoadedLibrary library;
    UnloadDuring(library, [&] { library.Search(""); });
  }
}

TEST(Lifetime, TheProcessEndsDuringASearch) {
  const auto start = Clock::now();
  Process child({MEDIA_ADAPTER_EXIT_IN_MID_REQUEST});
  EXPECT_EQ(child.Wait(), 7);
  EXPECT_LT(Clock::now() - start, 3s);
}

// Where the first cluster of a FAT16 volume begins, from its boot sector.
uint32_t FirstDataSector(const sim::Bytes& volume) {
  return ReadU16(volume, 14) + volume[16] * ReadU16(volume, 22) + ReadU16(volume, 17) * 32U / 512U;
}

TEST(Lifetime, AKilledDeviceKeepsWhatItAcknowledged) {
  const sim::TempFolder files;
  const std::string writeLog = files / "writes", local = files / "large";
  SimulatedDevice device("127.0.0.43", "killed");
  device.Start({"--log-writes", HostPath(writeLog), "--delay", "1"});  // slow enough to be killed in the middle
  LoadedLibrary library;
  ASSERT_EQ(library.Search("killed")->deviceCount, 1U);

  const sim::Bytes content = sim::Pattern(2000000);
  sim::WriteWholeFile(local, content);
  const auto write = [&] {
    std::string folder = "\\";
    return library.RFAWriteData(local.c_str(), folder.data(), 0, kPassword, 0)->status;
  };
  std::thread killer([&] {
    const auto deadline = Clock::now() + 30s;
    while (std::filesystem::file_size(writeLog) < 4000 && Clock::now() < deadline) std::this_thread::sleep_for(1ms);
    device.Kill();
  });
  EXPECT_EQ(write(), 253U);
  killer.join();

  const sim::Bytes volume = sim::ReadWholeFile(device.Volume());
  std::ifstream log(writeLog);
  size_t writes = 0;
  for (size_t sector = 0, count = 0; log >> sector >> count; ++writes) {
    ASSERT_EQ(sector, FirstDataSector(volume) + writes);
    ASSERT_EQ(count, 1U);
    const auto stored = volume.begin() + static_cast<std::ptrdiff_t>(sector * 512);
    ASSERT_TRUE(std::equal(stored, stored + 512, content.begin() + static_cast<std::ptrdiff_t>(writes * 512)));
  }
  EXPECT_GT(writes, 100U);
  EXPECT_LT(writes, content.size() / 512) << "killed in the middle";

  device.Start();
  EXPECT_EQ(write(), 0U);
  device.Kill();
  UnloadDuring(library, [&] { library.RFAConnect(0, kPassword, 0); });
}

}  // namespace
}  // namespace media_adapter::system_tests

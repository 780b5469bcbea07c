// The library's coming and going: loaded and unloaded idle and in the middle of a request, the end of the process, and
// the end of the device.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/support/temp_folder.h"
#include "tests/system/loaded_library.h"

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
  EXPECT_EQ(LoadedLibrary::WritableBytes(), 0U) << "it has really gone";
}

TEST(Lifetime, UnloadsDuringASearch) {
  for (int i = 0; i < 5; ++i) {
    LoadedLibrary library;
    UnloadDuring(library, [&] { library.Search(""); });
  }
}

// Unloading has then no part in it: the exit finds the library at work on another thread.
[[noreturn]] void ExitDuringASearch() {
  static auto& library = *new LoadedLibrary;
  std::thread([] { library.Search(""); }).detach();
  std::this_thread::sleep_for(300ms);
  std::exit(7);
}

TEST(Lifetime, TheProcessEndsDuringASearch) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto start = Clock::now();
  EXPECT_EXIT(ExitDuringASearch(), ::testing::ExitedWithCode(7), "");
  EXPECT_LT(Clock::now() - start, 3s);
}

// The device takes 300 writes, and no more after that.
TEST(Lifetime, ADeviceFallsSilentAndTheLibraryUnloadsDuringARequest) {
  const sim::TempFolder files;
  LoadedLibrary library;
  ASSERT_EQ(library.Search("mortal")->deviceCount, 1U);
  sim::WriteWholeFile(files / "large", sim::Pattern(1000000));
  std::string folder = "\\";
  EXPECT_EQ(library.RFAWriteData((files / "large").c_str(), folder.data(), 0, kPassword, 0)->status, 253U);
  UnloadDuring(library, [&] { library.RFAConnect(0, kPassword, 0); });
}

}  // namespace
}  // namespace media_adapter::system_tests

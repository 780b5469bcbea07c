// The library's coming and going: loaded and unloaded idle and in the middle of a request, the end of the process, and
// the end of the device.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tests/system/loaded_library.h"

namespace media_adapter::system_tests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kLoads = std::filesystem::path::preferred_separator == '\\' ? 1200 : 100;  // indices there are 1088
constexpr size_t kSlack = 2000;  // bytes that belong to the system or the threads of the test

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

// What may take a moment after the library has gone: its thread's end.
void ExpectSoon(const std::function<bool()>& condition, const char* what) {
  const auto start = Clock::now();
  while (!condition() && Clock::now() - start < 5s) std::this_thread::sleep_for(1ms);
  EXPECT_TRUE(condition()) << what;
}

void ComeAndGo(int times) {
  for (int i = 0; i < times; ++i) {
    LoadedLibrary library;
    EXPECT_EQ(library.RFAConnect(0, kPassword, 0)->status, 255U);
    library.Unload();
    EXPECT_EQ(LoadedLibrary::WritableBytes(), 0U) << "it has really gone";
  }
}

// The last calls are inside when the library goes: one in a search, the others in front of it.
void LeaveManyCallers(int times) {
  for (int i = 0; i < times; ++i) {
    LoadedLibrary library;
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 8; ++caller) {
      callers.emplace_back([&] {
        for (int call = 0; call < 10; ++call) library.RFAConnect(0, kPassword, 0);
        library.Search("");
      });
    }
    std::this_thread::sleep_for(150ms);
    library.Unload();
    for (auto& caller : callers) caller.join();
  }
}

// How often it goes with callers inside, which takes a fifth of a second each time.
int Unloads() {
  const char* const wanted = std::getenv("MEDIA_ADAPTER_UNLOADS");
  return wanted != nullptr ? std::atoi(wanted) : kLoads / 20;
}

TEST(Lifetime, ComesAndGoesAndLeavesNothingBehind) {
  ComeAndGo(10);
  LeaveManyCallers(2);
  std::this_thread::sleep_for(1s);
  const size_t indices = ThreadLocalIndices(), handles = OpenHandles(), bytes = AllocatedBytes();
  ComeAndGo(kLoads);
  LeaveManyCallers(Unloads());
  ExpectSoon([=] { return ThreadLocalIndices() >= indices; }, "indices of thread-local storage");
  ExpectSoon([=] { return OpenHandles() <= handles; }, "handles");
  ExpectSoon([=] { return AllocatedBytes() <= bytes + kSlack; }, "memory");
}

TEST(Lifetime, GoesAtOnceWhenItHasJustCome) {
  for (int i = 0; i < 50; ++i) {
    LoadedLibrary library(false);
    const auto start = Clock::now();
    library.Unload();
    EXPECT_LT(Clock::now() - start, 80ms) << "no force was needed";
  }
  ExpectSoon([] { return LoadedLibrary::WritableBytes() == 0; }, "the start is over, and it has gone");
}

TEST(Lifetime, UnloadsDuringASearch) {
  LoadedLibrary library;
  UnloadDuring(library, [&] { library.Search(""); });
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

// A local file system that has gone away: calls that write to it do not come back. The library's unloading and the end
// of the process do.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "platform/local_files.h"
#include "platform/thread.h"
#include "tests/support/temp_folder.h"
#include "tests/system/loaded_library.h"

namespace {

enum class Hang {
  Never,
  Interruptibly,  // until the thread is ended
  ForTwoSeconds,  // whoever tries to end it
};

std::atomic<Hang> hang = Hang::Never;
std::atomic<int> hungFile = -1;

void HangIfAsked() {
  if (hang == Hang::Interruptibly) {
    for (;;) pause();  // where a thread can be cancelled
  }
  if (hang == Hang::ForTwoSeconds) {
    hang = Hang::Never;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < end) sched_yield();
  }
}

}  // namespace

// In the place of the C library's, for the library's files as well.
extern "C" [[gnu::visibility("default")]] ssize_t pwrite64(int file, const void* bytes, size_t size, off64_t offset) {
  if (hang != Hang::Never) hungFile = file;
  HangIfAsked();
  return syscall(SYS_pwrite64, file, bytes, size, offset);
}

extern "C" [[gnu::visibility("default")]] int close(int file) {
  if (file == hungFile) HangIfAsked();
  return static_cast<int>(syscall(SYS_close, file));
}

namespace media_adapter::system_tests {
namespace {

using namespace std::chrono_literals;

TEST(HungWrite, AWriterIsStoppedByForceWithBytesUnwritten) {
  static const sim::TempFolder folder;
  platform::Thread thread;
  hang = Hang::Interruptibly;
  ASSERT_TRUE(thread.Start([] {
    platform::LocalFile file;
    file.CreateForWriting(folder / "file");
    file.Write(sim::Bytes(100000));
  }));
  EXPECT_FALSE(thread.Wait(100ms));
  EXPECT_NE(hungFile, -1);
  EXPECT_TRUE(thread.StopByForce());
  hang = Hang::Never;
  close(hungFile.exchange(-1));
}

// Reads a file from a device, and exits with 7 while the worker hangs in writing it. The worker goes on before the end.
[[noreturn]] void ExitInAHungWrite() {
  std::atexit([] { std::this_thread::sleep_for(1500ms); });  // called when the library has been stopped
  static const sim::TempFolder folder;
  static auto& library = *new LoadedLibrary;
  sim::WriteWholeFile(folder / "file", sim::Pattern(300000));
  std::string root = "\\";
  library.Search("hung");
  library.RFAWriteData((folder / "file").c_str(), root.data(), 0, kPassword, 0);
  hang = Hang::ForTwoSeconds;
  std::thread([] {
    std::string downloads = folder.Path().string();
    library.RFAReadData("\\file", downloads.data(), 0, kPassword, 0);
  }).detach();
  while (hang != Hang::Never) std::this_thread::sleep_for(10ms);
  std::exit(7);
}

TEST(HungWrite, TheProcessEndsThoughItsWorkerCannotBeStoppedByForce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(ExitInAHungWrite(), ::testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace media_adapter::system_tests

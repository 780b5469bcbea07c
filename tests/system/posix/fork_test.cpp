// Forked children of a process that uses the library: they have its memory and its descriptors, but not its worker.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <thread>

#include "tests/system/loaded_library.h"

namespace media_adapter::system_tests {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Runs `body` in a child, which dies with the test at the latest.
template <class Body>
pid_t Fork(Body body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  alarm(20);
  body();
  _exit(1);
}

int StatusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Ends the child with 7 when it went as it should. A thread of its own may lie where the worker lay in the parent.
void UseAndLeave(LoadedLibrary& library, bool unloads) {
  const auto start = Clock::now();
  std::atomic<bool> hasSlept = false;
  std::thread own([&] {
    std::this_thread::sleep_for(300ms);
    hasSlept = true;
  });
  bool isGood = library.RFAConnect(0, kPassword, 0)->status == 253;
  isGood = library.SetIpInterface("127.0.0.1") == 253 && isGood;
  isGood = library.Search("")->deviceCount == 0 && isGood;
  if (unloads) library.Unload();
  isGood = Clock::now() - start < 800ms && isGood;
  if (unloads) LoadedLibrary();  // this process's own, which binds its socket or throws
  own.join();
  std::exit(isGood && hasSlept ? 7 : 1);
}

// The children leave while the parent is in the middle of a call, with the library's locks held.
TEST(Fork, AChildGivesUpAndLeavesAtOnceAndTheParentGoesOn) {
  LoadedLibrary library;
  uint32_t found = 0;
  std::thread caller([&] { found = library.Search("forked")->deviceCount; });
  std::this_thread::sleep_for(300ms);
  for (const bool unloads : {true, false}) {
    const auto start = Clock::now();
    EXPECT_EQ(StatusOf(Fork([&] { UseAndLeave(library, unloads); })), 7) << unloads;
    EXPECT_LT(Clock::now() - start, 1s);
  }
  caller.join();
  EXPECT_EQ(found, 1U);
  EXPECT_EQ(library.RFAConnect(0, kPassword, 0)->status, 0U);
}

// Of this process's only datagram socket.
sockaddr_in LibrarysAddress() {
  for (int handle = 3; handle < 1024; ++handle) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size) != 0) continue;
    if (address.sin_family == AF_INET) return address;
  }
  return {};
}

// A socket that a child holds goes on receiving after the library has closed it.
TEST(Fork, TheWorkerRestsWhileAChildHoldsItsOldSocket) {
  LoadedLibrary library;
  const sockaddr_in old = LibrarysAddress();
  const pid_t child = Fork([] { pause(); });
  EXPECT_EQ(library.SetIpInterface("127.0.0.2"), 0U);
  const int sender = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(sendto(sender, "x", 1, 0, reinterpret_cast<const sockaddr*>(&old), sizeof old), 1);
  close(sender);
  const auto before = std::clock();
  std::this_thread::sleep_for(500ms);
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 10) << "of the processor's time";
  kill(child, SIGKILL);
  StatusOf(child);
}

}  // namespace
}  // namespace media_adapter::system_tests

// The library's memory: over whole requests, each of its allocations fails once, and nothing crosses the border but a
// status that says so, and the next call works. What it took it gives back when it is stopped.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <set>

#include "tests/support/volume_checks.h"

namespace {

std::atomic<int> untilFailure = 0;  // allocations until the one that fails; 0: none does
std::atomic<int> pieces = 0;        // allocated and not freed

}  // namespace

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  const bool fails = untilFailure > 0 && !media_adapter::sim::SimWorld::IsInside() && --untilFailure == 0;
  pieces += fails ? 0 : 1;
  return fails ? nullptr : std::malloc(std::max<size_t>(size, 1));
}
void* operator new(size_t size) {
  void* const memory = operator new(size, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  pieces -= memory != nullptr ? 1 : 0;
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { operator delete(memory); }

namespace media_adapter::sim {
namespace {

using MemoryTest = LibraryTest;

// Runs `call` with its first allocation failing, then with its second, until it needs no more. Each time `onFailure`
// gets what it came to. Returns how many there were.
int FailEach(const std::function<uint32_t()>& call, const std::function<void(uint32_t)>& onFailure) {
  for (int each = 1;; ++each) {
    SCOPED_TRACE(each);
    untilFailure = each;
    const uint32_t result = call();
    if (untilFailure.exchange(0) > 0) return each - 1;
    onFailure(result);
  }
}

TEST_F(MemoryTest, ARequestWithoutMemoryFailsAndTheNextOneWorks) {
  const Bytes content = Pattern(20000);
  AddAndSearch(Made({}, "/a long name.bin:20000"));
  const TempFolder folder;
  const std::string local = folder / "another long name.bin";
  WriteWholeFile(local, content);
  std::string downloads = Downloads().Path().string(), root;
  const std::vector<uint16_t> elements(100, MEDIA_ADAPTER_ELEMENT(0, 2));
  const std::string address = "127.0.0.1" + std::string(100, ' ');

  const std::set<uint32_t> kNoMemory = {249, 253};
  const auto prepareWrite = [&] { root = "\\"; };
  const auto write = [&] { return API_RFAWriteData(local.c_str(), root.data(), 0, kPassword, 0)->status; };
  const auto read = [&](const char* path) { return API_RFAReadData(path, downloads.data(), 0, kPassword, 0)->status; };
  const struct {
    const char* name;
    uint32_t good;
    std::set<uint32_t> failed;
    std::function<uint32_t()> run;
    std::function<void()> prepare = [] {};
  } rows[] = {
      {"Search", 1, {0}, [] { return API_Search("device")->deviceCount; }},
      {"GetConfiguration", 0, kNoMemory,
       [&] { return API_GetConfiguration(elements.data(), 100, 0, kPassword, 0)->status; }},
      {"SetTest", 1, kNoMemory, [] { return API_SetTest(nullptr, 0, "sixteen letters!", 0)->status; }},
      {"SetIpInterface", 0, {253}, [&] { return API_SetIpInterface(address.c_str()); }},
      {"List", 0, kNoMemory, [&] { return read("\\"); }},
      {"Read", 0, kNoMemory, [&] { return read("\\a long name.bin"); }},
      {"Write", 0, kNoMemory, write, prepareWrite},
      {"CreateDirectory", 0, kNoMemory, [] { return API_RFACreateDirectory("\\a directory", 0, kPassword, 0)->status; },
       [] { API_RFAFormat(0, kPassword, 0); }},
      {"Delete", 0, kNoMemory, [] { return API_RFADelete("\\another long name.bin", 0, kPassword, 0)->status; },
       [&] { prepareWrite(), write(); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    row.prepare();
    const int count = FailEach(row.run, [&](uint32_t result) {
      EXPECT_TRUE(row.failed.contains(result)) << result;
      row.prepare();
      EXPECT_EQ(row.run(), row.good);
      row.prepare();
    });
    EXPECT_GT(count, 0);
  }
  EXPECT_EQ(Downloaded("a long name.bin"), content);
}

TEST(Memory, ALibraryThatStartsWithoutItGivesUp) {
  SimWorld world;
  const auto startAndStop = [] {
    StartLibrary();
    const int left = untilFailure.exchange(0);
    const uint32_t status = API_SetIpInterface("127.0.0.1");
    StopLibrary();
    untilFailure = left;
    return status;
  };
  EXPECT_GT(FailEach(startAndStop,
                     [&](uint32_t status) {
                       EXPECT_EQ(status, 253U);
                       EXPECT_EQ(world.OpenSockets(), 0U);
                       EXPECT_EQ(world.errors.size(), 1U);
                       world.errors.clear();
                     }),
            2);
  EXPECT_TRUE(world.errors.empty());
}

TEST_F(MemoryTest, AStoppedLibraryHasGivenBackWhatItTook) {
  AddDevice(Made({}));
  Stop();
  world.keepsLog = false;
  int before = 0;
  for (const bool usesStorage : {true, false, true}) {  // the first may learn something that stays
    before = pieces;
    StartLibrary();
    EXPECT_EQ(API_Search("")->deviceCount, 1U);
    for (int calls = usesStorage ? 2 : 0; calls > 0; --calls) {
      EXPECT_EQ(API_RFADelete("\\nothing", 0, kPassword, 0)->status, 244U) << "keeps its buffers";
    }
    StopLibrary();
  }
  EXPECT_EQ(pieces, before);
}

}  // namespace
}  // namespace media_adapter::sim

// Reading over a bad network, seed by seed: whatever is lost, doubled and reordered, a read ends with the right bytes
// or says that it failed. MEDIA_ADAPTER_SEED=n replays one seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "tests/support/library_fixture.h"

namespace media_adapter::sim {
namespace {

constexpr uint64_t kSeeds = 200;
constexpr uint64_t kReads = 5;  // in a run

struct Files {
  VolumeImage image;
  std::vector<std::pair<std::string, Bytes>> contents;
};

// A volume whose last file lies in pieces.
Files MakeFiles(const VolumeShape& shape) {
  VolumeBuilder builder(shape);
  Files files;
  const auto add = [&](const std::string& name, size_t size) {
    builder.AddFile("/Folder/" + name,
                    files.contents.emplace_back(name, Pattern(size, static_cast<uint32_t>(size))).second);
  };
  builder.AddFolder("/Folder");
  add("gone.bin", 30000);
  add("small.txt", 100);
  builder.Delete("/Folder/gone.bin");
  files.contents.erase(files.contents.begin());
  add("empty", 0);
  add("A song in pieces.mp3", 61441);
  add("last", 5000);
  files.image = builder.Build();
  return files;
}

class SeededWorld : public LibraryTest {
 public:
  explicit SeededWorld(uint64_t seed) : LibraryTest(seed) {}
  void TestBody() override {}

  // Returns how many of its reads succeeded. Nothing else than success with the right result and 253 may happen.
  size_t Run(const Files& files, const RandomFaults& faults) {
    LibraryTest::SetUp();
    AddAndSearch(files.image);
    world.random = faults;
    size_t succeeded = 0;
    std::set<std::string> names = {".", ".."};
    for (const auto& [name, content] : files.contents) {
      names.insert(name);
      succeeded += ReadOne(name, content);
    }
    const auto* listing = Read("\\folder");
    EXPECT_TRUE(listing->status == 0 || listing->status == 253);
    if (listing->status == 0) {
      ++succeeded;
      EXPECT_EQ(NamesIn(*listing), names);
    }
    // The network is good again: everything works.
    world.random = {};
    EXPECT_EQ(NamesIn(*Read("\\Folder")), names);
    for (const auto& [name, content] : files.contents) EXPECT_EQ(ReadOne(name, content), 1U);
    LibraryTest::TearDown();
    return succeeded;
  }

 private:
  static std::set<std::string> NamesIn(const ReadDataResult& result) {
    std::set<std::string> names;
    for (uint32_t i = 0; i < result.entryCount; ++i) names.insert(result.entries[i].name);
    return names;
  }
  size_t ReadOne(const std::string& name, const Bytes& content) {
    const uint32_t status = Read("\\Folder\\" + name)->status;
    EXPECT_TRUE(status == 0 || status == 253) << name << ": " << status;
    if (status != 0) return 0;
    EXPECT_TRUE(Downloaded(name) == content) << name << " has wrong bytes";
    return 1;
  }
};

TEST(RandomReads, EndRightOrSayThatTheyFailed) {
  const Files volumes[] = {MakeFiles({.sectorsPerCluster = 1}), MakeFiles({.fatBits = 32, .sectorsPerCluster = 8})};
  const RandomFaults usual{.loss = 0.05, .duplication = 0.05, .reordering = 0.1};
  const RandomFaults heavy{.loss = 0.25, .duplication = 0.2, .reordering = 0.5};
  const char* only = std::getenv("MEDIA_ADAPTER_SEED");
  const uint64_t first = only != nullptr ? std::strtoull(only, nullptr, 10) : 1;
  const uint64_t last = only != nullptr ? first : kSeeds;
  size_t succeeded = 0;
  for (uint64_t seed = first; seed <= last && !HasFailure(); ++seed) {
    SCOPED_TRACE("replay with MEDIA_ADAPTER_SEED=" + std::to_string(seed));
    succeeded += SeededWorld(seed).Run(volumes[seed % 2], usual);
    if (seed % 4 == 0) SeededWorld(seed).Run(volumes[seed / 4 % 2], heavy);
  }
  EXPECT_GT(succeeded, (last - first + 1) * kReads * 9 / 10) << "resending makes up for a network like this";
}

}  // namespace
}  // namespace media_adapter::sim

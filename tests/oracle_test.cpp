// What the judges of fuzz/ say: a short soak, and every input that fuzzing has found worth keeping. `build/soak` runs
// any number of histories; with libFuzzer the targets look for more inputs.
#include <gtest/gtest.h>

#include <filesystem>

#include "fuzz/soak/history.h"

// The fuzz targets, compiled under names of their own. A breach of what they judge aborts.
extern "C" int FuzzDatagram(const uint8_t* data, size_t size);
extern "C" int FuzzVolume(const uint8_t* data, size_t size);

namespace media_adapter {
namespace {

// Random histories of everything that users do with a volume, on eight shapes of it, under all faults.
TEST(Oracle, HistoriesLeaveWhatTheirModelSays) {
  const std::vector<soak::Shape> shapes = soak::MakeShapes();
  soak::Totals totals{};
  for (uint64_t seed = 1; seed <= 80 && !HasFailure(); ++seed) {
    EXPECT_TRUE(soak::RunSeed(seed, shapes, seed % 20 == 0, totals));
  }
}

TEST(Oracle, NoInputOfTheCorporaIsABreach) {
  for (const auto& [corpus, run] : {std::pair{"datagram", &FuzzDatagram}, {"volume", &FuzzVolume}}) {
    for (const auto& file : std::filesystem::directory_iterator(std::string(MEDIA_ADAPTER_CORPORA "/") + corpus)) {
      std::printf("%s\n", file.path().filename().c_str());
      std::fflush(stdout);
      const soak::Bytes input = sim::ReadWholeFile(file.path());
      ASSERT_FALSE(input.empty());
      run(input.data(), input.size());
    }
  }
}

}  // namespace
}  // namespace media_adapter

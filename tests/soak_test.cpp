// A short soak: random histories of everything that users do with a volume, on eight shapes of it, under all faults.
// `build/soak` runs any number of them.
#include <gtest/gtest.h>

#include "fuzz/soak/history.h"

TEST(Soak, HistoriesLeaveWhatTheirModelSays) {
  using namespace media_adapter::soak;
  const std::vector<Shape> shapes = MakeShapes();
  Totals totals{};
  for (uint64_t seed = 1; seed <= 80 && !HasFailure(); ++seed) {
    EXPECT_TRUE(RunSeed(seed, shapes, seed % 20 == 0, totals));
  }
}

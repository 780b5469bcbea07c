// The example program as a user runs it.
#include <gtest/gtest.h>

#include "tests/system/simulated_device.h"

namespace media_adapter::system_tests {
namespace {

TEST(Example, SearchesAndReads) {
  const SimulatedDevice device("127.0.0.44", "example");
  Process wrong({MEDIA_ADAPTER_EXAMPLE, "127.0.0.1", "example"}, "wrong\n");
  Process right({MEDIA_ADAPTER_EXAMPLE, "127.0.0.1", "example"}, std::string(kPassword) + "\n");
  EXPECT_EQ(right.Wait(), 0);
  EXPECT_EQ(right.Output(),
            "1 found; the first is example at 127.0.0.44\n"
            "(0,2) text: example\n"
            "(8,4) number: 256\n");
  EXPECT_EQ(wrong.Wait(), 1);
  EXPECT_EQ(Process({MEDIA_ADAPTER_EXAMPLE, "127.0.0.1x"}).Wait(), 1);
  EXPECT_EQ(Process({MEDIA_ADAPTER_EXAMPLE, "127.0.0.1", "example", "more"}).Wait(), 2);
}

}  // namespace
}  // namespace media_adapter::system_tests

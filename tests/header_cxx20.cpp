// The public header as a C++ program sees it: it compiles alone, and C and C++ call the same functions.
// clang-format off: first of all, so that nothing else helps it
#include "api/media_adapter.h"
// clang-format on

#include <gtest/gtest.h>

#include "tests/support/library_fixture.h"

extern "C" const StatusResult* CallFromC();

namespace media_adapter::sim {
namespace {

using HeaderTest = LibraryTest;

TEST_F(HeaderTest, CAndCxxShareTheResult) {
  EXPECT_EQ(CallFromC(), API_RFADisconnect(0, nullptr, 0));
  EXPECT_EQ(CallFromC()->status, uint32_t{MEDIA_ADAPTER_DEVICE_NOT_FOUND});
}

}  // namespace
}  // namespace media_adapter::sim

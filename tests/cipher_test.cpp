// MD5 and RC4 against published vectors.
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "protocol/md5.h"
#include "protocol/rc4.h"

namespace media_adapter {
namespace {

std::string Hex(std::span<const uint8_t> bytes) {
  std::string text;
  for (const uint8_t byte : bytes) text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return text;
}

// The longest of RFC 1321, appendix A.5; then lengths around the end of a 64-byte block.
TEST(Md5, GivesTheDigestsOfItsDefinition) {
  const std::pair<std::string, const char*> rows[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {std::string(55, 'a'), "ef1772b6dff9a122358552954ad0df65"},
      {std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218"},
      {std::string(64, 'a'), "014842d480b571495a4a0363793f7367"},
  };
  for (const auto& [message, digest] : rows) {
    EXPECT_EQ(Hex(Md5(std::vector<uint8_t>(message.begin(), message.end()))), digest) << message;
  }
}

// RFC 6229 for keys of 5 and 16 bytes.
TEST(Rc4, GivesThePublishedKeystreams) {
  const std::tuple<size_t, size_t, const char*> streams[] = {{5, 4096, "ff25b58995996707e51fbdf08b34d875"},
                                                             {16, 240, "065902e4b620f6cc36c8589f66432f2b"}};
  for (const auto& [keySize, from, keystream] : streams) {
    std::vector<uint8_t> key(keySize), data(from + 16);
    std::iota(key.begin(), key.end(), uint8_t{1});
    Rc4(key, data);
    EXPECT_EQ(Hex(std::span(data).subspan(from)), keystream);
  }
}

}  // namespace
}  // namespace media_adapter

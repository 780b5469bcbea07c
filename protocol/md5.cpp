#include "protocol/md5.h"

#include <algorithm>
#include <bit>

#include "protocol/little_endian.h"

namespace media_adapter {
namespace {

constexpr size_t kBlock = 64;
constexpr size_t kLengthOffset = 56;  // of the message length in the last block

// RFC 1321, 3.4: floor(2^32 * abs(sin(i + 1))).
constexpr std::array<uint32_t, 64> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

constexpr int kRotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// The words of the block, in the order in which each round takes them.
constexpr uint32_t kFirstWords[] = {0, 1, 5, 0}, kWordSteps[] = {1, 5, 3, 7};

using State = std::array<uint32_t, 4>;
using Block = std::span<const uint8_t>;

// RFC 1321, 3.4: the functions F, G, H and I.
constexpr uint32_t Mix(uint32_t round, uint32_t b, uint32_t c, uint32_t d) {
  switch (round) {
    case 0:
      return d ^ (b & (c ^ d));
    case 1:
      return c ^ (d & (b ^ c));
    case 2:
      return b ^ c ^ d;
    default:
      return c ^ (b | ~d);
  }
}

// Four steps are written out, in which each value of the state goes once through each place.
template <uint32_t kRound>
void DoRound(State& state, Block block) {
  auto& [a, b, c, d] = state;
  uint32_t word = kFirstWords[kRound];
  const uint32_t* sine = &kSines[kRound * size_t{16}];
  const auto step = [&](uint32_t& to, uint32_t x, uint32_t y, uint32_t z, int rotation) {
    to = x + std::rotl(to + Mix(kRound, x, y, z) + ReadU32(block, word * size_t{4}) + *sine++, rotation);
    word = (word + kWordSteps[kRound]) % 16;
  };
  constexpr auto& rotations = kRotations[kRound];
  for (int i = 0; i < 4; ++i) {
    step(a, b, c, d, rotations[0]);
    step(d, a, b, c, rotations[1]);
    step(c, d, a, b, rotations[2]);
    step(b, c, d, a, rotations[3]);
  }
}

void AddBlock(State& state, Block block) {
  State next = state;
  DoRound<0>(next, block);
  DoRound<1>(next, block);
  DoRound<2>(next, block);
  DoRound<3>(next, block);
  for (size_t i = 0; i < state.size(); ++i) state[i] += next[i];
}

}  // namespace

Md5Digest Md5(std::span<const uint8_t> message) {
  State state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  auto rest = message;
  for (; rest.size() >= kBlock; rest = rest.subspan(kBlock)) AddBlock(state, rest.first(kBlock));

  // RFC 1321, 3.1 and 3.2: a one bit, zeros, and the length in bits as a u64 end the last block.
  std::array<uint8_t, kBlock> last{};
  std::ranges::copy(rest, last.begin());
  last[rest.size()] = 0x80;
  if (rest.size() >= kLengthOffset) {
    AddBlock(state, last);
    last.fill(0);
  }
  WriteU32(last, kLengthOffset, static_cast<uint32_t>(message.size() * 8));
  AddBlock(state, last);

  Md5Digest digest{};
  for (size_t i = 0; i < state.size(); ++i) WriteU32(digest, i * 4, state[i]);
  return digest;
}

}  // namespace media_adapter

// Where a run takes its decisions from: a seed, which means the same everywhere, or a fuzzer's input, byte by byte.
// Used by the soak and the fuzz targets.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <span>

namespace media_adapter::fuzz {

class Choices {
 public:
  // Not the distributions of a standard library, which are its own.
  explicit Choices(uint64_t seed) : generator_(seed) {}
  explicit Choices(std::span<const uint8_t> input) : input_(input) {}

  // 0 to limit - 1; always 0 behind an input's end.
  size_t Below(size_t limit) {
    if (generator_) return (*generator_)() % limit;
    size_t number = 0;
    for (int shift = 0; (limit - 1) >> shift != 0; shift += 8) {
      for (const uint8_t byte : Bytes(1)) number |= size_t{byte} << shift;
    }
    return number % limit;
  }
  bool OneIn(size_t n) { return n != 0 && Below(n) == 0; }  // never for 0
  template <typename Alternatives>
  auto Of(const Alternatives& alternatives) {
    return alternatives[Below(std::size(alternatives))];
  }
  // A device's status, of no success: mostly one that means something to the library.
  uint32_t Status() {
    constexpr uint32_t kStatuses[] = {1,   2,   3,   4,   5,   6,   7,   8,          9,         49,
                                      20,  236, 238, 239, 240, 241, 243, 244,        245,       248,
                                      249, 250, 251, 252, 253, 255, 128, 0xFFFFFFFF, 0x80000000};
    return OneIn(12) ? std::max<uint32_t>(static_cast<uint32_t>(Below(1ULL << 32)), 1) : Of(kStatuses);
  }

  bool IsAtEnd() const { return input_.empty(); }
  // The input's next, `count` at most.
  std::span<const uint8_t> Bytes(size_t count) {
    const auto taken = input_.first(std::min(count, input_.size()));
    input_ = input_.subspan(taken.size());
    return taken;
  }

 private:
  std::optional<std::mt19937_64> generator_;
  std::span<const uint8_t> input_;
};

}  // namespace media_adapter::fuzz

#include "protocol/rc4.h"

#include <array>
#include <numeric>
#include <utility>

namespace media_adapter {

void Rc4(std::span<const uint8_t> key, std::span<uint8_t> data) {
  std::array<uint8_t, 256> state{};
  std::iota(state.begin(), state.end(), uint8_t{0});
  uint8_t j = 0;
  for (size_t i = 0; i < state.size(); ++i) {
    j = static_cast<uint8_t>(j + state[i] + key[i % key.size()]);
    std::swap(state[i], state[j]);
  }

  uint8_t i = 0;
  j = 0;
  for (uint8_t& byte : data) {
    ++i;
    j = static_cast<uint8_t>(j + state[i]);
    std::swap(state[i], state[j]);
    byte ^= state[static_cast<uint8_t>(state[i] + state[j])];
  }
}

}  // namespace media_adapter

// Who a request goes to and as whom: the values that every request of one call carries, and the storage geometry that
// the device reported when access to it was opened.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "api/media_adapter.h"

namespace media_adapter {

// A password of at most 16 characters; more are cut off. Plain bytes: the session in it outlives the library's objects.
class Password {
 public:
  Password() = default;
  explicit Password(std::string_view text) : size_(text.copy(text_.data(), text_.size())) {}
  operator std::string_view() const { return {text_.data(), size_}; }  // NOLINT(google-explicit-constructor)
  bool operator==(const Password&) const = default;

 private:
  std::array<char, MEDIA_ADAPTER_MAX_PASSWORD> text_{};
  size_t size_ = 0;
};

struct SessionValues {
  uint8_t requestTag = 0;  // only the two low bits travel
  Password password;
  uint32_t device = 0;  // index into the device table
};

struct SessionInfo {
  uint32_t lastSector = 0;        // the highest sector that may be addressed
  uint32_t deviceSectorSize = 0;  // bytes
};

// Set by an accepted reply to RFAConnect, kept until the next one.
extern SessionInfo sessionInfo;

}  // namespace media_adapter

// The one gate through which a name from a device becomes the name of a local file or folder.
#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string_view>

namespace media_adapter::cli {

// Bytes of one name on the usual file systems.
inline constexpr size_t kMaxLocalName = 255;

// Where drives and streams have a ':', and a name loses the dots and spaces at its end.
inline constexpr bool kIsDosHost = std::filesystem::path::preferred_separator == '\\';

// True when `name` can only mean an entry of the folder that it is put into: not empty, "." or "..", without a
// separator of either kind and without control bytes.
inline bool IsSafeLocalName(std::string_view name) {
  if (name.empty() || name.size() > kMaxLocalName || name == "." || name == "..") return false;
  if (kIsDosHost && (name.find(':') != std::string_view::npos || name.ends_with('.') || name.ends_with(' '))) {
    return false;
  }
  return std::ranges::none_of(name, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == '/' || c == '\\';
  });
}

}  // namespace media_adapter::cli

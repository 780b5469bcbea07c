#include "fat/device_path.h"

#include <algorithm>

namespace media_adapter {
namespace {

constexpr char kSeparator = '\\';

std::string_view WithoutTrailingSpaces(std::string_view name) {
  while (name.ends_with(' ')) name.remove_suffix(1);
  return name;
}

}  // namespace

int CountPathComponents(std::string_view path) {
  if (path.empty()) return -1;
  const auto count = static_cast<int>(std::ranges::count(path, kSeparator));
  return path.ends_with(kSeparator) ? count - 1 : count;
}

std::string_view GetPathComponent(std::string_view path, int k) {
  for (; k > 0; --k) {
    const size_t separator = path.find(kSeparator);
    if (separator == std::string_view::npos) return {};
    path.remove_prefix(separator + 1);
  }
  return path.substr(0, path.find(kSeparator));
}

bool NamesEqual(std::string_view a, std::string_view b) {
  return std::ranges::equal(WithoutTrailingSpaces(a), WithoutTrailingSpaces(b), {}, ToLower, ToLower);
}

char ToLower(char c) { return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }

char ToUpper(char c) { return IsLower(c) ? static_cast<char>(c - 'a' + 'A') : c; }

bool IsLower(char c) { return c >= 'a' && c <= 'z'; }

bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }

}  // namespace media_adapter

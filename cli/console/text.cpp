#include "cli/console/text.h"

#include <algorithm>
#include <array>

namespace media_adapter::cli {
namespace {

constexpr uint8_t ByteAt(std::string_view text, size_t position) { return static_cast<uint8_t>(text[position]); }

struct Range {
  uint32_t first, last;
};

// Valid characters that a terminal obeys or that change how the rest of the line reads.
constexpr std::array<Range, 6> kUnprintable = {{
    {0x00, 0x1F},
    {0x7F, 0x9F},
    {0x200E, 0x200F},  // direction marks
    {0x2028, 0x2029},  // line and paragraph separators
    {0x202A, 0x202E},  // direction embeddings and overrides
    {0x2066, 0x2069},  // direction isolates
}};

bool IsPrintable(uint32_t code) {
  return std::ranges::none_of(kUnprintable, [=](Range r) { return code >= r.first && code <= r.last; });
}

constexpr std::string_view kHexDigits = "0123456789abcdef";

int HexValue(char c) {
  const size_t position = kHexDigits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
  return position == std::string_view::npos ? -1 : static_cast<int>(position);
}

}  // namespace

// As RFC 3629 defines it: no overlong forms, no surrogates, nothing above U+10FFFF.
Character DecodeCharacter(std::string_view text) {
  const uint8_t first = ByteAt(text, 0);
  if (first < 0x80) return {first, 1};
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return {};
  uint32_t code = first & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, i) & 0xC0) != 0x80) return {};
    code = code << 6 | (ByteAt(text, i) & 0x3Fu);
  }
  constexpr std::array<uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return {};
  return {code, length};
}

std::string Escape(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (size_t at = 0; at < bytes.size();) {
    const Character character = DecodeCharacter(bytes.substr(at));
    const size_t length = std::max<size_t>(character.length, 1);
    if (character.code == '\\') {
      text += "\\\\";
    } else if (character.length > 0 && IsPrintable(character.code)) {
      text += bytes.substr(at, length);
    } else {
      for (size_t i = at; i < at + length; ++i) {
        text.append("\\x").append(HexByte(ByteAt(bytes, i)));
      }
    }
    at += length;
  }
  return text;
}

std::optional<std::string> Unescape(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    if (text[at] != '\\') {
      bytes += text[at++];
    } else if (text.substr(at, 2) == "\\\\") {
      bytes += '\\';
      at += 2;
    } else {
      if (text.size() < at + 4 || text[at + 1] != 'x') return std::nullopt;
      const int high = HexValue(text[at + 2]);
      const int low = HexValue(text[at + 3]);
      if (high < 0 || low < 0) return std::nullopt;
      bytes += static_cast<char>(high * 16 + low);
      at += 4;
    }
  }
  return bytes;
}

std::string HexByte(uint8_t byte) { return {kHexDigits[byte >> 4], kHexDigits[byte & 15]}; }

size_t Columns(std::string_view text) {
  return static_cast<size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Shorten(std::string_view text, size_t columns) {
  size_t end = 0;
  for (size_t count = 0; end < text.size(); ++end) {
    if ((text[end] & 0xC0) != 0x80 && ++count > columns) break;
  }
  return std::string(text.substr(0, end));
}

}  // namespace media_adapter::cli

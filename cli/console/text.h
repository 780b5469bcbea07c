// Bytes from a device as text. A device may send any byte; whatever the tool prints, in a table, a message or JSON, has
// gone through Escape, so that it is valid UTF-8, stays on its line and cannot drive a terminal. One scheme serves
// everywhere, and Unescape turns it back without loss.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace media_adapter::cli {

// Writes a backslash as "\\" and, byte by byte as "\xNN", what is no printable UTF-8: control characters (C0, DEL, C1),
// marks that reorder or break a line, and bytes that belong to no well-formed character.
std::string Escape(std::string_view bytes);

// The bytes that Escape made `text` from; also takes text that needs no escapes. None when a backslash is followed by
// anything but "\" or "xNN".
std::optional<std::string> Unescape(std::string_view text);

struct Character {
  uint32_t code = 0;
  size_t length = 0;  // bytes; 0 when the text does not start with a well-formed character
};

// The first character of `text`, which is not empty.
Character DecodeCharacter(std::string_view text);

// Two lower-case hexadecimal digits.
std::string HexByte(uint8_t byte);

// Characters of UTF-8 text: the columns that it takes on a terminal, wide characters aside.
size_t Columns(std::string_view text);
// The first so many of them, so that a line does not wrap.
std::string Shorten(std::string_view text, size_t columns);

}  // namespace media_adapter::cli

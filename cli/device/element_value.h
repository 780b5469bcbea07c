// The values of a device's settings as a person writes and reads them. One text for each form, the same on the command
// line, in tables and (within JSON's own kinds) in settings files:
//
//   text     the bytes up to the first zero, escaped (cli/text.h)
//   number   decimal; 0x... is read as well
//   address  four decimal numbers joined by dots
//   bytes    two hexadecimal digits a byte; blanks, ":" and "-" between bytes are read as well
//   list     entries of six bytes as above, joined by commas
//   secret   never as text
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/element_table.h"

namespace media_adapter::cli {

// "class.index", and back; null when the text is no such pair or names no element of the table.
std::string ElementName(const ElementRow& row);
const ElementRow* FindElementByName(std::string_view name);

// "text", "number", "address", "bytes", "list" or "secret".
std::string_view FormName(ElementForm form);

// What a value of this row must be, for messages: "a number from 1 to 14".
std::string DescribeValues(const ElementRow& row);

// The part of an element's field that is its value: a text up to its first zero, a list up to its last entry, any other
// field whole. field: row.maxSize bytes.
std::span<const uint8_t> ValueInField(const ElementRow& row, std::span<const uint8_t> field);

std::string FormatValue(const ElementRow& row, std::span<const uint8_t> field);

struct ParsedValue {
  std::vector<uint8_t> field;  // row.maxSize bytes, zero-filled behind the value
  std::string problem;         // why there is no value; empty when there is one
};

// The field for `text`, checked against the row. Never takes a secret.
ParsedValue ParseValue(const ElementRow& row, std::string_view text);

// The field of a secret element from the bytes of a file or a prompt, zero-filled. A line end behind the secret does
// not count, unless bytes that are no text fill the field with it.
ParsedValue ParseSecret(const ElementRow& row, std::string_view bytes);

}  // namespace media_adapter::cli

#include "cli/device/element_value.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "cli/console/text.h"
#include "protocol/little_endian.h"

namespace media_adapter::cli {
namespace {

using Bytes = std::vector<uint8_t>;

std::optional<uint32_t> ParseNumber(std::string_view text, int base = 10) {
  uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::string FormatBytes(std::span<const uint8_t> bytes) {
  std::string text;
  for (const uint8_t byte : bytes) text += HexByte(byte);
  return text;
}

std::optional<Bytes> ParseBytes(std::string_view text) {
  Bytes bytes;
  while (!text.empty()) {
    if (!bytes.empty() && (text[0] == ' ' || text[0] == ':' || text[0] == '-')) text.remove_prefix(1);
    const auto byte = ParseNumber(text.substr(0, 2), 16);
    if (text.size() < 2 || !byte) return std::nullopt;
    bytes.push_back(static_cast<uint8_t>(*byte));
    text.remove_prefix(2);
  }
  return bytes;
}

template <typename Parse>
std::optional<Bytes> ParseJoined(std::string_view text, char separator, const Parse& parse) {
  Bytes bytes;
  for (bool isMore = true; isMore;) {
    const size_t end = std::min(text.find(separator), text.size());
    isMore = end < text.size();
    const std::optional<Bytes> part = parse(text.substr(0, end));
    if (!part) return std::nullopt;
    bytes.insert(bytes.end(), part->begin(), part->end());
    text.remove_prefix(isMore ? end + 1 : end);
  }
  return bytes;
}

std::optional<Bytes> ParseAddress(std::string_view text) {
  const auto address = ParseJoined(text, '.', [](std::string_view part) -> std::optional<Bytes> {
    const auto number = part.size() <= 3 ? ParseNumber(part) : std::nullopt;
    if (!number || *number > 255) return std::nullopt;
    return Bytes{static_cast<uint8_t>(*number)};
  });
  return address && address->size() == 4 ? address : std::nullopt;
}

std::optional<Bytes> ParseList(std::string_view text) {
  Bytes list(kListCountSize);
  if (text.empty()) return list;
  const auto entries = ParseJoined(text, ',', [](std::string_view part) -> std::optional<Bytes> {
    const auto entry = ParseBytes(part);
    return entry && entry->size() == kListEntrySize ? entry : std::nullopt;
  });
  if (!entries || entries->size() > size_t{kMaxListEntries} * kListEntrySize) return std::nullopt;
  WriteU32(list, 0, static_cast<uint32_t>(entries->size() / kListEntrySize));
  list.insert(list.end(), entries->begin(), entries->end());
  return list;
}

std::optional<Bytes> ParseInteger(std::string_view text, size_t width) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  const auto number = isHex ? ParseNumber(text.substr(2), 16) : ParseNumber(text);
  if (!number || (width < 4 && *number >> (8 * width) != 0)) return std::nullopt;
  Bytes bytes(4);
  WriteU32(bytes, 0, *number);
  bytes.resize(width);
  return bytes;
}

std::optional<Bytes> ParseText(std::string_view text) {
  const auto bytes = Unescape(text);
  if (!bytes || bytes->find('\0') != std::string::npos) return std::nullopt;
  return Bytes(bytes->begin(), bytes->end());
}

std::optional<Bytes> ParseForm(const ElementRow& row, std::string_view text) {
  switch (row.form) {
    case ElementForm::Text:
      return ParseText(text);
    case ElementForm::Number:
      return ParseInteger(text, row.maxSize);
    case ElementForm::Address:
      return ParseAddress(text);
    case ElementForm::Bytes:
      return ParseBytes(text);
    case ElementForm::List:
      return ParseList(text);
    case ElementForm::Secret:
      break;
  }
  return std::nullopt;
}

std::string JoinCodes(std::span<const uint8_t> codes) {
  std::string text;
  for (const uint8_t code : codes) text.append(text.empty() ? "" : ", ").append(std::to_string(code));
  return text;
}

uint64_t LittleEndian(std::span<const uint8_t> bytes) {
  uint64_t number = 0;
  for (size_t i = bytes.size(); i-- > 0;) number = number << 8 | bytes[i];
  return number;
}

}  // namespace

std::string ElementName(const ElementRow& row) {
  return std::to_string(row.elementClass) + "." + std::to_string(row.index);
}

const ElementRow* FindElementByName(std::string_view name) {
  const size_t dot = std::min(name.find('.'), name.size());
  const auto elementClass = ParseNumber(name.substr(0, dot));
  const auto index = dot < name.size() ? ParseNumber(name.substr(dot + 1)) : std::nullopt;
  if (!elementClass || !index || *elementClass > 255 || *index > 255) return nullptr;
  return FindElement(static_cast<uint8_t>(*elementClass), static_cast<uint8_t>(*index));
}

std::string_view FormName(ElementForm form) {
  constexpr std::string_view kNames[] = {"text", "number", "address", "bytes", "list", "secret"};
  return kNames[static_cast<size_t>(form)];
}

std::string DescribeValues(const ElementRow& row) {
  const std::string size = std::to_string(row.maxSize);
  switch (row.form) {
    case ElementForm::Text:
      return "a text of at most " + size + " bytes (\\\\ for a backslash, \\xNN for any other byte but zero)";
    case ElementForm::Address:
      return "an address such as 10.0.0.1";
    case ElementForm::List:
      return "at most " + std::to_string(kMaxListEntries) + " entries of 12 hexadecimal digits, joined by commas";
    case ElementForm::Secret:
      return "a secret of at most " + size + " bytes";
    case ElementForm::Bytes:
      return size + " bytes in hexadecimal" +
             (row.check == ElementCheck::EachByte ? ", each at most " + std::to_string(row.high) : "");
    case ElementForm::Number:
      break;
  }
  if (row.check == ElementCheck::OneOf) return "one of " + JoinCodes(row.codes);
  if (row.check == ElementCheck::Range) {
    return "a number from " + std::to_string(row.low) + " to " + std::to_string(row.high);
  }
  return "a number of at most " + size + " bytes";
}

std::span<const uint8_t> ValueInField(const ElementRow& row, std::span<const uint8_t> field) {
  if (row.form == ElementForm::Text) {
    return field.first(static_cast<size_t>(std::ranges::find(field, uint8_t{0}) - field.begin()));
  }
  if (row.form == ElementForm::List) {
    const uint32_t count = ReadU32(field, 0);
    return field.first(kListCountSize + (count <= kMaxListEntries ? size_t{count} * kListEntrySize : 0));
  }
  return field;
}

std::string FormatValue(const ElementRow& row, std::span<const uint8_t> field) {
  const std::span<const uint8_t> value = ValueInField(row, field);
  std::string text;
  switch (row.form) {
    case ElementForm::Text:
      return Escape({reinterpret_cast<const char*>(value.data()), value.size()});
    case ElementForm::Number:
      return std::to_string(LittleEndian(value));
    case ElementForm::Address:
      for (const uint8_t octet : value) text.append(text.empty() ? "" : ".").append(std::to_string(octet));
      return text;
    case ElementForm::Bytes:
      return FormatBytes(value);
    case ElementForm::List:
      for (size_t at = kListCountSize; at < value.size(); at += kListEntrySize) {
        text.append(text.empty() ? "" : ",").append(FormatBytes(value.subspan(at, kListEntrySize)));
      }
      return text;
    case ElementForm::Secret:
      break;
  }
  return text;
}

ParsedValue ParseValue(const ElementRow& row, std::string_view text) {
  std::optional<Bytes> value = ParseForm(row, text);
  if (value && row.form == ElementForm::List) value->resize(row.maxSize);
  if (!value || !IsValidValue(row, *value)) return {{}, "must be " + DescribeValues(row)};
  value->resize(row.maxSize);
  return {std::move(*value), {}};
}

ParsedValue ParseSecret(const ElementRow& row, std::string_view bytes) {
  const std::string_view text = bytes.substr(0, bytes.find_last_not_of("\r\n") + 1);
  const bool isText = std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
  if (isText || bytes.size() != row.maxSize) {
    if (bytes.ends_with('\n')) bytes.remove_suffix(bytes.ends_with("\r\n") ? 2 : 1);
  }
  if (bytes.size() > row.maxSize) return {{}, "must be " + DescribeValues(row)};
  Bytes field(bytes.begin(), bytes.end());
  field.resize(row.maxSize);
  return {std::move(field), {}};
}

}  // namespace media_adapter::cli

#include "protocol/config_elements.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "protocol/element_table.h"
#include "protocol/little_endian.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"
#include "protocol/rc4.h"
#include "protocol/wire.h"

namespace media_adapter {
namespace {

using Bytes = std::span<const uint8_t>;

struct TestItem {
  uint8_t index;
  uint8_t width;        // of the field
  uint16_t offset;      // in TestParameters
  uint8_t padding = 0;  // zero bytes behind the field's
};

constexpr TestItem kTestItems[] = {
    {0, 1, offsetof(TestParameters, element15_0), 1}, {2, 1, offsetof(TestParameters, element15_2)},
    {3, 1, offsetof(TestParameters, element15_3)},    {4, 1, offsetof(TestParameters, element15_4)},
    {5, 1, offsetof(TestParameters, element15_5)},    {6, 1, offsetof(TestParameters, element15_6)},
    {7, 1, offsetof(TestParameters, element15_7)},    {8, 2, offsetof(TestParameters, element15_8)},
    {9, 2, offsetof(TestParameters, element15_9)},    {10, 2, offsetof(TestParameters, element15_10)},
    {11, 64, offsetof(TestParameters, element15_11)},
};

// Appends items to the request's body.
class BodyWriter {
 public:
  // The place of a value of `size` bytes behind its item header; none when the body is full.
  std::optional<std::span<uint8_t>> AddItem(uint8_t elementClass, uint8_t index, size_t size) {
    if (size_ + wire::kItemHeaderSize + size > wire::kMaxBodySize) return std::nullopt;
    const auto item = RequestBody().subspan(size_, wire::kItemHeaderSize + size);
    item[0] = elementClass;
    item[1] = index;
    WriteU16(item, 2, static_cast<uint16_t>(size));
    size_ += item.size();
    return item.subspan(wire::kItemHeaderSize);
  }
  size_t Size() const { return size_; }

 private:
  size_t size_ = 0;
};

// How many bytes of its field an element sends.
size_t SentSize(const ElementRow& row, Bytes field) {
  switch (row.form) {
    case ElementForm::Text:
      return static_cast<size_t>(std::ranges::find(field, uint8_t{0}) - field.begin());
    case ElementForm::List:
      return kListCountSize + kListEntrySize * ReadU32(field, 0);
    default:
      return field.size();
  }
}

StatusCode AddSetting(BodyWriter& body, const ElementRow& row, Bytes field, std::string_view password) {
  if (row.form == ElementForm::List && ReadU32(field, 0) > kMaxListEntries) return MEDIA_ADAPTER_INVALID_ELEMENT_SIZE;
  if (row.form == ElementForm::Secret && password.empty()) return MEDIA_ADAPTER_INVALID_PASSWORD;
  const size_t size = SentSize(row, field);
  const auto value = body.AddItem(row.elementClass, row.index, size);
  if (!value) return MEDIA_ADAPTER_PACKET_TOO_LARGE;
  std::ranges::copy(field.first(size), value->begin());
  if (row.form == ElementForm::Secret) {
    Rc4({reinterpret_cast<const uint8_t*>(password.data()), password.size()}, *value);
  }
  return MEDIA_ADAPTER_OK;
}

}  // namespace

BuiltBody BuildElementIdList(std::span<const uint16_t> elements) {
  if (elements.size_bytes() > wire::kMaxBodySize) return {.status = MEDIA_ADAPTER_PACKET_TOO_LARGE};
  const auto body = RequestBody();
  size_t size = 0;
  for (const uint16_t element : elements) {
    body[size++] = static_cast<uint8_t>(element >> 8);
    body[size++] = static_cast<uint8_t>(element);
  }
  return {.size = size};
}

BuiltBody BuildConfigElements(std::span<const uint16_t> elements, std::string_view password,
                              const ConfigurationData& source) {
  const Bytes image(reinterpret_cast<const uint8_t*>(&source), sizeof source);
  BodyWriter body;
  for (const uint16_t element : elements) {
    const ElementRow* row = FindElement(static_cast<uint8_t>(element >> 8), static_cast<uint8_t>(element));
    if (row == nullptr || !row->isWritten) continue;
    const Bytes field = image.subspan(row->configOffset, row->maxSize);
    const StatusCode status = AddSetting(body, *row, field, password);
    if (status != MEDIA_ADAPTER_OK) return {.status = status};
  }
  return {.size = body.Size()};
}

BuiltBody BuildTestElements() {
  const Bytes parameters(reinterpret_cast<const uint8_t*>(&testData.parameters), sizeof testData.parameters);
  BodyWriter body;
  for (const TestItem& item : kTestItems) {
    const auto value = body.AddItem(wire::kTestClass, item.index, size_t{item.width} + item.padding);
    const auto padding = std::ranges::copy(parameters.subspan(item.offset, item.width), value->begin()).out;
    std::fill(padding, value->end(), uint8_t{0});
  }
  return {.size = body.Size()};
}

}  // namespace media_adapter

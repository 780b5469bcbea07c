#include "simulator/settings_store.h"

#include <algorithm>

#include "protocol/element_table.h"
#include "protocol/little_endian.h"
#include "protocol/rc4.h"
#include "protocol/wire.h"

namespace media_adapter::simulator {
namespace {

constexpr uint8_t kNameClass = 0, kNameIndex = 2;
constexpr uint8_t kAddressClass = 1, kAddressIndex = 0;

// The lowest value that a row allows.
uint32_t LowestValue(const ElementRow& row) {
  switch (row.check) {
    case ElementCheck::Range:
      return row.low;
    case ElementCheck::OneOf:
      return *std::ranges::min_element(row.codes);
    default:
      return 0;
  }
}

void StoreNumber(std::span<uint8_t> field, uint32_t value) {
  for (uint8_t& byte : field) {
    byte = static_cast<uint8_t>(value);
    value >>= 8;
  }
}

// No device can live at "this network", at a multicast or at a broadcast address.
bool IsUsableAddress(std::span<const uint8_t> address) { return address[0] != 0 && address[0] < 224; }

// A list is written without its unused entries, while the table gives the size of the whole field.
DeviceStatus CheckList(const ElementRow& row, std::span<const uint8_t> value) {
  if (value.size() < kListCountSize || value.size() > row.maxSize) return DeviceStatus::InvalidSize;
  const uint32_t count = ReadU32(value, 0);
  if (count > row.high) return DeviceStatus::InvalidElement;
  return value.size() == kListCountSize + count * kListEntrySize ? DeviceStatus::Success : DeviceStatus::InvalidSize;
}

DeviceStatus CheckWrite(const ElementRow* row, std::span<const uint8_t> value, std::string_view password) {
  if (row == nullptr || !row->isWritten) return DeviceStatus::InvalidElement;
  if (row->form == ElementForm::List) return CheckList(*row, value);
  if (value.size() < row->minSize || value.size() > row->maxSize) return DeviceStatus::InvalidSize;
  if (row->form == ElementForm::Secret && password.empty()) return DeviceStatus::InvalidPassword;
  if (!IsValidValue(*row, value)) return DeviceStatus::InvalidElement;
  const bool isOwnAddress = row->elementClass == kAddressClass && row->index == kAddressIndex;
  return !isOwnAddress || IsUsableAddress(value) ? DeviceStatus::Success : DeviceStatus::InvalidElement;
}

}  // namespace

DeviceSettingsStore::DeviceSettingsStore(std::string_view name, const platform::Ipv4Address& address) {
  for (const ElementRow& row : ElementTable()) {
    if (row.configOffset != kNoOffset && row.form == ElementForm::Number) {
      StoreNumber(Field(row.elementClass, row.index), LowestValue(row));
    }
  }
  const std::span<uint8_t> nameField = Field(kNameClass, kNameIndex);
  std::copy_n(name.begin(), std::min(name.size(), nameField.size()), nameField.begin());
  std::ranges::copy(address, Field(kAddressClass, kAddressIndex).begin());
}

std::span<uint8_t> DeviceSettingsStore::Field(uint8_t elementClass, uint8_t index) {
  const ElementRow* row = FindElement(elementClass, index);
  if (row == nullptr || row->configOffset == kNoOffset) return {};
  return Image().subspan(row->configOffset, row->maxSize);
}

void DeviceSettingsStore::SetGaps(std::vector<uint16_t> unknown, std::vector<uint16_t> untold) {
  unknown_ = std::move(unknown);
  untold_ = std::move(untold);
}

const ElementRow* DeviceSettingsStore::Known(uint8_t elementClass, uint8_t index) const {
  const bool isUnknown = std::ranges::find(unknown_, elementClass << 8 | index) != unknown_.end();
  return isUnknown ? nullptr : FindElement(elementClass, index);
}

platform::Ipv4Address DeviceSettingsStore::Address() const {
  platform::Ipv4Address address;
  std::copy_n(image_.begin() + FindElement(kAddressClass, kAddressIndex)->configOffset, address.size(),
              address.begin());
  return address;
}

void DeviceSettingsStore::AppendElement(const ElementRow& row, Datagram& reply) const {
  if (row.configOffset == kNoOffset) {  // not a setting: a fact of the device
    StoreNumber(AppendItem(reply, row.elementClass, row.index, row.minSize), LowestValue(row));
    return;
  }
  std::span<const uint8_t> value = Image().subspan(row.configOffset, row.maxSize);
  if (row.form == ElementForm::Text) {
    value = value.first(static_cast<size_t>(std::ranges::find(value, 0) - value.begin()));
  }
  std::ranges::copy(value, AppendItem(reply, row.elementClass, row.index, value.size()).begin());
}

void DeviceSettingsStore::AppendSearchElements(Datagram& reply) const {
  for (const ElementRow& row : ElementTable()) {
    if (row.entryOffset != kNoOffset) AppendElement(row, reply);
  }
}

DeviceStatus DeviceSettingsStore::AppendElements(std::span<const uint8_t> ids, Datagram& reply) const {
  if (ids.size() % 2 != 0) return DeviceStatus::ProtocolError;
  for (; !ids.empty(); ids = ids.subspan(2)) {
    const ElementRow* row = Known(ids[0], ids[1]);
    if (row == nullptr || row->form == ElementForm::Secret) return DeviceStatus::InvalidElement;
    if (std::ranges::find(untold_, ids[0] << 8 | ids[1]) == untold_.end()) AppendElement(*row, reply);
    if (reply.size() > wire::kMaxDatagramSize) return DeviceStatus::TooLong;
  }
  return DeviceStatus::Success;
}

DeviceStatus DeviceSettingsStore::Apply(std::span<const uint8_t> body, std::string_view password) {
  Item item;
  ItemReader checked(body);
  while (checked.Next(item)) {
    const DeviceStatus status = CheckWrite(Known(item.elementClass, item.index), item.value, password);
    if (status != DeviceStatus::Success) return status;
  }
  if (!checked.IsAtEnd()) return DeviceStatus::ProtocolError;

  ItemReader stored(body);
  while (stored.Next(item)) Store(*FindElement(item.elementClass, item.index), item.value, password);
  return DeviceStatus::Success;
}

void DeviceSettingsStore::Store(const ElementRow& row, std::span<const uint8_t> value, std::string_view password) {
  const std::span<uint8_t> field = Field(row.elementClass, row.index);
  std::ranges::fill(field, uint8_t{0});
  std::ranges::copy(value, field.begin());
  if (row.form == ElementForm::Secret) {
    Rc4({reinterpret_cast<const uint8_t*>(password.data()), password.size()}, field);
  }
}

}  // namespace media_adapter::simulator

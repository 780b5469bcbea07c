// A device's settings: every element at its place in both directions and within its limits, the bodies of the four
// requests, secrets, what is refused before it is sent, a change of address, and the reports of a running test.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "protocol/device_table.h"
#include "protocol/parse_elements.h"
#include "protocol/protocol_state.h"
#include "protocol/rc4.h"
#include "protocol/session.h"
#include "tests/support/device_requests.h"

namespace media_adapter::sim {
namespace {

constexpr size_t kNowhere = 9999;

// Where the records have an element, and 0.2 and 1.0 by their names in the entry of a search.
#define RECORD(record, size)
#define FIELD(record, name, offset, size) {#record "." #name, offset},
const std::map<std::string, size_t> kPlaces = {
#include "api/record_layouts.inc"
};
size_t PlaceOf(const std::string& field) { return kPlaces.contains(field) ? kPlaces.at(field) : kNowhere; }

// An element as documented: form t text, u bytes up to a size, f bytes of one size, e bytes of at most 5 each, n number
// from the first value to the second, c one of the values, l list, s secret.
struct Row {
  explicit Row(const Strings& cells) : use(cells[6]) {
    elementClass = static_cast<uint8_t>(std::stoul(cells[1]));
    index = static_cast<uint8_t>(std::stoul(cells[2]));
    size = std::stoul(cells[4].substr(cells[4].find('-') + 1));
    form = cells[5].starts_with("each") ? 'e' : cells[4].starts_with("0-") ? 'u' : 'f';
    if (std::string("tls").find(cells[3][0]) != std::string::npos) form = cells[3][0];
    std::string limits = cells[3] == "number" ? cells[5] : "";
    const auto isNoDigit = [](char c) { return c < '0' || c > '9'; };
    std::ranges::replace_if(limits, isNoDigit, ' ');
    std::istringstream numbers(limits);
    for (uint32_t value = 0; numbers >> value;) values.push_back(value);
    if (!values.empty()) form = cells[5].find(" to ") != std::string::npos ? 'n' : 'c';
    const std::string field = ".element" + cells[1] + "_" + cells[2];
    place = PlaceOf("ConfigurationData" + field);
    const bool isNamed = Id() == 0x0002 || Id() == 0x0100;
    entryPlace = PlaceOf("DeviceEntry" + (!isNamed ? field : Id() == 2 ? ".name" : ".ipAddress"));
  }

  bool Is(const char* wanted) const { return use.find(wanted) != std::string::npos; }
  uint16_t Id() const { return static_cast<uint16_t>(elementClass * 256 + index); }
  Bytes ItemWith(const Bytes& value) const { return Item(elementClass, index, value); }

  std::string use;
  uint8_t elementClass, index;
  char form;
  size_t size, place, entryPlace;
  std::vector<uint32_t> values;
};

const std::vector<Row> kRows = [] {
  const std::string more =
      "| 15.13 | f | 4 | | |\n| 15.14 | f | 4 | | |\n| 15.15 | f | 4 | | |\n| 16.4 | f | 4 | | |\n"
      "| 16.5 | number | 4 | 1 to 4294967295 | |\n";
  std::vector<Row> rows;
  for (const Strings& cells : Documented(R"(\| (\d+)\.(\d+) \| (\w+) \| ([0-9-]+) \| (.*?) ?\| (.*?) ?\|)", more))
    rows.emplace_back(cells);
  return rows;
}();

Bytes ListOf(uint32_t count) { return Join({NumberOf(count, 4), Pattern(224, 10)}); }

// Values that the element may just have, the lowest or shortest first.
std::vector<Bytes> GoodValues(const Row& row) {
  std::vector<Bytes> values;
  for (const uint32_t value : row.values) values.push_back(NumberOf(value, row.size));
  if (row.form == 't') values = {{}, {'a', 'b'}, Bytes(row.size, 't')};
  if (row.form == 'u') values = {{}, Bytes(row.size, 8)};
  if (row.form == 'f' || row.form == 's') values = {Pattern(row.size, static_cast<uint32_t>(row.place))};
  if (row.form == 'e') values = {{0, 0, 0, 0}, {5, 5, 5, 5}};
  if (row.form == 'l') values = {ListOf(0), ListOf(3), ListOf(32)};
  return values;
}

// Good values made too long and too short, and every number that is near a limit or, of one byte, not good.
std::vector<Bytes> BadValues(const Row& row) {
  std::vector<Bytes> values;
  for (Bytes value : GoodValues(row)) {
    value.resize(row.size + 1);
    values.push_back(value);
    value.resize(row.size - 1);
    if (row.form != 't' && row.form != 'u') values.push_back(value);
  }
  const auto isGood = [&](uint32_t value) {
    const bool isBetween = row.form == 'n' && value >= row.values[0] && value <= row.values[1];
    return isBetween || std::ranges::count(row.values, value) > 0;
  };
  std::vector<uint32_t> numbers;
  for (uint32_t value = 0; value < 256; ++value) numbers.push_back(value);
  for (const uint32_t value : row.values) numbers.insert(numbers.end(), {value - 1, value + 1, value + 0x10000});
  for (const uint32_t number : numbers) {
    const bool fits = row.size >= 4 || number >> (8 * row.size) == 0;
    if (!row.values.empty() && fits && !isGood(number)) values.push_back(NumberOf(number, row.size));
  }
  if (row.form == 'e') values.insert(values.end(), {{6, 0, 0, 0}, {0, 0, 0, 6}});
  if (row.form == 'l') values.push_back(ListOf(33));
  return values;
}

// What is in the settings once the element's value has come.
void Put(const Row& row, const Bytes& value, Bytes& image, size_t place) {
  const auto field = image.begin() + static_cast<std::ptrdiff_t>(place);
  if (row.form == 't') std::fill_n(field, row.size, uint8_t{0});
  std::ranges::copy(value, field);
}

template <class Record>
Bytes BytesOf(const Record& record) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
  return Bytes(bytes, bytes + sizeof record);
}

// The settings with the k-th good value everywhere, or the last of those that have fewer; the device's address stays.
Bytes ImageOf(size_t k) {
  Bytes image(sizeof(ConfigurationData), 0xEE);
  for (const Row& row : kRows) {
    const auto values = GoodValues(row);
    if (row.place != kNowhere) Put(row, values[std::min(k, values.size() - 1)], image, row.place);
  }
  std::ranges::copy(Bytes{127, 0, 0, 11}, image.begin() + 36);
  return image;
}

class SettingsTest : public DeviceTest {
 protected:
  using Ids = std::vector<uint16_t>;
  uint32_t Set(const Ids& ids, const Bytes& image, const char* password = kPassword) {
    ConfigurationData settings;
    std::memcpy(&settings, image.data(), sizeof settings);
    return API_SetConfiguration(ids.data(), static_cast<uint32_t>(ids.size()), &settings, 2, password, 0)->status;
  }
  const ConfigurationResult* Get(const Ids& ids) {
    return API_GetConfiguration(ids.data(), static_cast<uint32_t>(ids.size()), 2, kPassword, 0);
  }
  Bytes LastBody() { return BodyOf(Sent().back().bytes); }
};

constexpr BodyMode kReplies[] = {BodyMode::SearchReply,     BodyMode::GetConfigurationReply, BodyMode::TestReport,
                                 BodyMode::RFAConnectReply, BodyMode::RFAReadDataReply,      BodyMode::TransferData};

// The last of two, though an element stands between them that nobody knows; and nothing of a body that is malformed.
void ExpectStored(const Row& row, const Bytes& first, const Bytes& value, const Bytes& stored) {
  const Bytes body = Join({row.ItemWith(first), Item(3, 3, {1}), row.ItemWith(value)});
  const auto expect = [&](auto& record, BodyMode reply, uint8_t untold, size_t place) {
    std::memset(&record, 0xEE, sizeof record);
    EXPECT_FALSE(ParseElements(Join({body, {0}}), reply));
    EXPECT_EQ(BytesOf(record), Bytes(sizeof record, 0xEE));
    Bytes expected(sizeof record, untold);
    if (place != kNowhere) Put(row, first, expected, place);
    if (place != kNowhere) Put(row, stored, expected, place);
    EXPECT_TRUE(ParseElements(body, reply));
    EXPECT_EQ(BytesOf(record), expected);
  };
  expect(configurationData, BodyMode::GetConfigurationReply, 0xEE, row.Is("read") ? row.place : kNowhere);
  expect(deviceTable.entries[0], BodyMode::SearchReply, 0, row.entryPlace);
}

TEST(Elements, EachHasItsLimitsAndItsPlaceInEveryReply) {
  ResetProtocol();
  ASSERT_EQ(kRows.size(), 59U);
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.Id());
    for (const BodyMode reply : kReplies) {
      for (const Bytes& value : BadValues(row)) {
        EXPECT_FALSE(ParseElements(row.ItemWith(value), reply)) << testing::PrintToString(value);
      }
      for (const Bytes& value : GoodValues(row)) EXPECT_TRUE(ParseElements(row.ItemWith(value), reply));
    }
    for (const Bytes& value : GoodValues(row)) ExpectStored(row, GoodValues(row).back(), value, value);
    if (row.form == 'l') ExpectStored(row, ListOf(1), ListOf(0xFFFFFFFF), ListOf(0));
  }
  ResetProtocol();
  const Bytes foreign = Join({Item(17, wire::kLastSectorIndex, {1, 0, 0, 0}), Item(17, wire::kDataIndex, {1})});
  for (const BodyMode reply : kReplies) {
    EXPECT_TRUE(ParseElements(foreign, reply)) << "of another class";
    EXPECT_TRUE(ParseElements(Item(wire::kFileAccessClass, wire::kSectorIndex, {}), reply)) << "nobody reads it";
    const bool hasData = reply == BodyMode::RFAReadDataReply || reply == BodyMode::TransferData;
    EXPECT_NE(ParseElements(Item(wire::kFileAccessClass, wire::kDataIndex, {}), reply), hasData);
  }
  EXPECT_EQ(sessionInfo.lastSector, 0U);
  EXPECT_EQ(transferBuffer.size, 0);
}

TEST_F(SettingsTest, AllElementsTravelAtOnceEachFromItsPlace) {
  Ids all = {0x0106, 0x0810, 0x0904, 0x0300, 0x0F00, 0x1003, 0xFFFF}, readable;  // none can be written
  for (const Row& row : kRows) {
    all.insert(all.begin(), row.Id());
    if (row.Is("read")) readable.push_back(row.Id());
  }
  for (size_t k = 0; k < 3; ++k) {
    SCOPED_TRACE(k);
    Bytes image = ImageOf(k), read(image.size()), expected;
    std::copy_n(image.begin() + 764, 24, image.begin() + 788);  // equal secrets in (10,2) and (10,3)
    EXPECT_EQ(Set(all, image), 0U);
    for (const Row& row : kRows) {
      if (row.place == kNowhere) continue;
      Bytes value = Slice(image, row.place, row.size);
      if (row.Is("read")) Put(row, value, read, row.place);
      if (row.form == 't') value.erase(std::ranges::find(value, 0), value.end());
      if (row.form == 'l') value.resize(4 + 6U * value[0]);
      if (row.form == 's') {
        EXPECT_TRUE(std::ranges::equal(value, device->Settings().Image().subspan(row.place, row.size)));
        Rc4(Bytes{'s', 'e', 'c', 'r', 'e', 't'}, value);
      }
      if (row.Is("written")) expected = Join({row.ItemWith(value), expected});
    }
    EXPECT_EQ(LastBody(), expected);

    std::ranges::copy(image, device->Settings().Image().begin());
    ASSERT_EQ(Set({}, Bytes(image.size())), 0U);
    EXPECT_EQ(BytesOf(Get(readable)->configuration), read);
  }
}

TEST_F(SettingsTest, WhatCannotBeRightIsNotSent) {
  const Bytes image = ImageOf(0);
  for (const uint16_t secret : Ids{0x0903, 0x0905, 0x0A02, 0x0A03}) {
    EXPECT_EQ(Set({0x0800, secret}, image, ""), 3U);
    EXPECT_EQ(Set({0x0800, secret}, image, nullptr), 3U);
  }
  for (const uint32_t count : {33U, 256U, 0xFFFFFFFFU}) {
    Bytes wrong = image;
    std::ranges::copy(ListOf(count), wrong.begin() + 532);
    EXPECT_EQ(Set({0x0A00}, wrong), 1U);
  }
  const ConfigurationData settings{};
  EXPECT_EQ(API_SetConfiguration(nullptr, 1, &settings, 0, kPassword, 0)->status, 1U);
  Ids ids(22, 0x0E03);  // 22 times 4 + 64 bytes, and an empty text
  ids.insert(ids.end(), {0x0800, 0x0800});
  EXPECT_EQ(Set(ids, image), 4U);
  EXPECT_EQ(Get(Ids(751, 0x0800))->status, 4U);
  EXPECT_EQ(Get(Ids(70000, 0x0800))->status, 4U);
  EXPECT_EQ(Set(Ids(65537, 0x0300), image), 4U) << "more names than there are";
  EXPECT_TRUE(Sent().empty());
  EXPECT_EQ(Set(Ids(65536, 0x0300), image), 0U) << "none of them can be written";
  Get({0x0201, 0x0800});
  EXPECT_EQ(LastBody(), (Bytes{2, 1, 8, 0}));
  ids.pop_back();
  EXPECT_EQ(Set(ids, image), 0U);
  EXPECT_EQ(LastBody().size(), 1500U);
  Get(Ids(750, 0x0800));
  EXPECT_EQ(Sent(Command::GetConfiguration).back().bytes.size(), wire::kMaxDatagramSize);
}

TEST_F(SettingsTest, ANewAddressIsBroadcastAndAnsweredFromTheOldOne) {
  constexpr platform::Ipv4Address kOld{127, 0, 0, 11}, kNew{127, 0, 0, 99};
  IpConfiguration wanted{{127, 0, 0, 99}, {255, 0, 0, 1}, {127, 0, 0, 2}, 2, {7, 8, 9}};
  ASSERT_EQ(Set({}, ImageOf(0)), 0U);
  EXPECT_EQ(API_SetIPConfiguration(&wanted, 1, kPassword, 0)->status, 0U);
  const auto request = Sent().back();
  EXPECT_EQ(request.receiver, (Endpoint{platform::kBroadcastAddress, 14001}));
  EXPECT_EQ(request.bytes.size(), 73U);
  EXPECT_EQ(Slice(request.bytes, 18, 6), (Bytes{2, 0, 0, 0, 0, 11}));
  EXPECT_EQ(LastBody(), Join({Item(1, 0, {127, 0, 0, 99}), Item(1, 1, {255, 0, 0, 1}), Item(1, 2, {127, 0, 0, 2}),
                              Item(1, 4, {2})}));
  EXPECT_EQ(world.Log().back().sender.address, kOld);
  EXPECT_EQ(device->Identity().address, kNew);

  EXPECT_EQ(Get({})->status, 253U) << "the list still has the old address";
  EXPECT_EQ(Sent().back().receiver.address, kOld);
  EXPECT_EQ(BytesOf(Get({})->configuration), ImageOf(0)) << "the image of the settings is another matter";
  Search();
  EXPECT_EQ(Get({})->status, 0U);
  EXPECT_EQ(Sent().back().receiver.address, kNew);

  wanted.addressMode = 3;
  EXPECT_EQ(API_SetIPConfiguration(&wanted, 1, kPassword, 0)->status, 2U) << "values are the device's to judge";
  ChangeReplies(Command::SetConfiguration, 4, [](Datagram&, Endpoint& sender) { sender.address[3] = 98; });
  EXPECT_EQ(API_SetIPConfiguration(&wanted, 1, kPassword, 0)->status, 253U) << "another address, another device";
}

TEST_F(SettingsTest, ATestIsStartedAndReported) {
  const Bytes p = Pattern(sizeof(TestParameters));
  TestParameters parameters;
  std::memcpy(&parameters, p.data(), sizeof parameters);
  Get(Ids(750, 0xEEEE));  // what stood in the send buffer is not sent
  const auto* result = API_SetTest(&parameters, 0, kPassword, 0);
  ASSERT_EQ(result->status, 0U);
  EXPECT_EQ(Sent().back().bytes.size(), 166U);
  EXPECT_EQ(LastBody(),
            Join({Item(15, 0, {p[0], 0}), Item(15, 2, {p[1]}), Item(15, 3, {p[2]}), Item(15, 4, {p[5]}),
                  Item(15, 5, {p[3]}), Item(15, 6, {p[4]}), Item(15, 7, {p[12]}), Item(15, 8, {p[10], p[11]}),
                  Item(15, 9, {p[6], p[7]}), Item(15, 10, {p[8], p[9]}), Item(15, 11, Slice(p, 13, 64))}));
  const TestData& data = *result->testData;
  const auto counters = [&] { return std::vector<uint32_t>(data.counters, data.counters + 3); };
  EXPECT_EQ(BytesOf(data.parameters), p);
  EXPECT_EQ(counters(), (std::vector<uint32_t>{0, 0, 0}));
  world.Advance(1100ms);  // reports of 60 and 52 bytes by turns, every 250 ms
  EXPECT_EQ(counters(), (std::vector<uint32_t>{2, 2, 2}));
  Lose([](const LoggedDatagram& datagram) { return IsReplyTo(datagram, Command::GetConfiguration); });
  EXPECT_EQ(Get({})->status, 253U);
  EXPECT_EQ(counters(), (std::vector<uint32_t>{14, 14, 14}));
}

}  // namespace
}  // namespace media_adapter::sim

#include "simulator/datagram_text.h"

#include <array>
#include <cstdio>

#include "protocol/element_table.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"
#include "simulator/datagrams.h"

namespace media_adapter::simulator {
namespace {

using wire::Command;

struct CommandName {
  Command command;
  const char* name;
};

constexpr CommandName kNames[] = {
    {Command::Search, "Search"},
    {Command::SetConfiguration, "SetConfiguration"},
    {Command::GetConfiguration, "GetConfiguration"},
    {Command::SetTest, "SetTest"},
    {Command::TestReport, "TestReport"},
    {Command::RFAConnect, "RFAConnect"},
    {Command::RFADisconnect, "RFADisconnect"},
    {Command::RFAReadData, "RFAReadData"},
    {Command::RFAWriteData, "RFAWriteData"},
    {Command::RFAStartTransfer, "RFAStartTransfer"},
    {Command::TransferData, "TransferData"},
    {Command::TransferAcknowledgement, "TransferAcknowledgement"},
};

std::string NameOf(uint8_t code) {
  for (const CommandName& row : kNames) {
    if (static_cast<uint8_t>(row.command) == code) return row.name;
  }
  for (const CommandName& row : kNames) {
    if (static_cast<uint8_t>(row.command) + 1 == code) return std::string(row.name) + " reply";
  }
  return "command " + std::to_string(code);
}

std::string ElementName(uint8_t elementClass, uint8_t index) {
  return " " + std::to_string(elementClass) + "." + std::to_string(index);
}

std::string Quoted(std::span<const uint8_t> text) {
  std::string line = "\"";
  for (const uint8_t byte : text) {
    const bool isPlain = byte >= ' ' && byte < 0x7F && byte != '"' && byte != '\\';
    std::array<char, 5> escape{};
    std::snprintf(escape.data(), escape.size(), "\\x%02x", unsigned{byte});
    line += isPlain ? std::string(1, static_cast<char>(byte)) : escape.data();
  }
  return line + "\"";
}

std::string PacketNumbers(std::span<const uint8_t> value) {
  std::string line = "[";
  for (size_t at = 0; at + 2 <= value.size(); at += 2) {
    if (at != 0) line += ' ';
    line += std::to_string(ReadU16(value, at));
  }
  return line + "]";
}

std::string DescribeValue(const Item& item) {
  const ElementRow* row = FindElement(item.elementClass, item.index);
  const std::span<const uint8_t> value = item.value;
  if (row != nullptr && row->form == ElementForm::Text) return Quoted(value);
  if (row != nullptr && row->form == ElementForm::Address && value.size() == 4) {
    return DescribeAddress({value[0], value[1], value[2], value[3]});
  }
  if (item.elementClass == wire::kFileAccessClass && item.index == wire::kMissingPacketsIndex) {
    return PacketNumbers(value);
  }
  if (value.size() == 1) return std::to_string(value[0]);
  if (value.size() == 2) return std::to_string(ReadU16(value, 0));
  if (value.size() == 4) return std::to_string(ReadU32(value, 0));
  return "[" + std::to_string(value.size()) + " bytes]";
}

std::string DescribeBody(uint8_t command, std::span<const uint8_t> body) {
  std::string line;
  if (command == static_cast<uint8_t>(Command::GetConfiguration)) {
    for (size_t at = 0; at + 2 <= body.size(); at += 2) line += ElementName(body[at], body[at + 1]);
    return line;
  }
  Item item;
  ItemReader reader(body);
  while (reader.Next(item)) line += ElementName(item.elementClass, item.index) + "=" + DescribeValue(item);
  return reader.IsAtEnd() ? line : line + " and an item that runs past the end";
}

}  // namespace

std::string DescribeDatagram(std::span<const uint8_t> datagram) {
  std::string size = std::to_string(datagram.size()) + " bytes";
  if (datagram.size() < wire::kHeaderSize || ReadU32(datagram, wire::kMagicOffset) != wire::kMagic) return size;

  const uint8_t command = datagram[wire::kCommandOffset];
  const uint16_t sequence = ReadU16(datagram, wire::kSequenceOffset);
  const uint32_t status = ReadU32(datagram, wire::kStatusOffset);
  std::string line = NameOf(command) + " #" + std::to_string(sequence & wire::kSequenceMask);
  if (const int tag = sequence >> 14; tag != 0) line += " tag " + std::to_string(tag);
  if (status != 0) line += " status " + std::to_string(status);
  line += ", " + size;
  const std::string body = DescribeBody(command, datagram.subspan(wire::kHeaderSize));
  return body.empty() ? line : line + ":" + body;
}

std::string DescribeAddress(const platform::Ipv4Address& address) {
  return std::to_string(address[0]) + "." + std::to_string(address[1]) + "." + std::to_string(address[2]) + "." +
         std::to_string(address[3]);
}

std::string DescribeMac(const platform::MacAddress& mac) {
  std::array<char, 18> text{};
  std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", unsigned{mac[0]}, unsigned{mac[1]},
                unsigned{mac[2]}, unsigned{mac[3]}, unsigned{mac[4]}, unsigned{mac[5]});
  return text.data();
}

}  // namespace media_adapter::simulator

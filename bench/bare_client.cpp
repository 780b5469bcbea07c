#include "bench/bare_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "protocol/little_endian.h"
#include "protocol/md5.h"

namespace media_adapter::bench {
namespace {

constexpr uint32_t kSector = 512;
constexpr size_t kDataOffset = wire::kHeaderSize + wire::kItemHeaderSize;  // in a data packet
constexpr timeval kPatience{5, 0};

sockaddr_in LoopbackAddress(const char* address, uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  result.sin_addr.s_addr = inet_addr(address);
  return result;
}

std::vector<uint8_t> Item(uint8_t index, std::span<const uint8_t> value) {
  std::vector<uint8_t> item(wire::kItemHeaderSize + value.size());
  item[0] = wire::kFileAccessClass;
  item[1] = index;
  WriteU16(item, 2, static_cast<uint16_t>(value.size()));
  std::ranges::copy(value, item.begin() + wire::kItemHeaderSize);
  return item;
}

std::vector<uint8_t> SectorItem(uint32_t sector) {
  std::array<uint8_t, 4> value{};
  WriteU32(value, 0, sector);
  return Item(wire::kSectorIndex, value);
}

std::vector<uint8_t> OneSectorBody(uint32_t sector) {
  auto body = SectorItem(sector);
  const std::array<uint8_t, 2> one = {1, 0};
  const auto count = Item(wire::kSectorCountIndex, one);
  body.insert(body.end(), count.begin(), count.end());
  return body;
}

}  // namespace

BareClient::BareClient(const char* address, std::span<const uint8_t, 6> mac)
    : socket_(socket(AF_INET, SOCK_DGRAM, 0)), device_(LoopbackAddress(address, wire::kDevicePort)) {
  std::ranges::copy(mac, mac_.begin());
  const sockaddr_in local = LoopbackAddress("127.0.0.1", 0);
  setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
  const bool isOpen = socket_ >= 0 && bind(socket_, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0;
  if (!isOpen) throw std::runtime_error("the bare client has no socket");
  Exchange(Build(wire::Command::RFAConnect, 1, {}));
  SetSector(0);
}

BareClient::~BareClient() { close(socket_); }

void BareClient::SetSector(uint32_t sector) {
  auto body = OneSectorBody(sector);
  read_ = Build(wire::Command::RFAReadData, 2, body);
  const auto data = Item(wire::kDataIndex, std::array<uint8_t, kSector>{});
  body.insert(body.end(), data.begin(), data.end());
  write_ = Build(wire::Command::RFAWriteData, 3, body);
}

void BareClient::ReadSector() { Exchange(read_); }

void BareClient::WriteSector() { Exchange(write_); }

void BareClient::Stream(uint32_t sector, uint32_t size, const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
  if (!file) throw std::runtime_error("the bare client cannot write");
  Send(Build(wire::Command::RFAStartTransfer, 0, SectorItem(sector)));
  const uint32_t blocks = (size + wire::kBlockSize - 1) / wire::kBlockSize;
  uint32_t inGroup = 0;
  for (uint32_t group = 1; group <= blocks;) {
    const size_t received = Receive();
    std::fwrite(reply_.data() + kDataOffset, 1, received - kDataOffset, file.get());
    if (++inGroup < wire::kPacketsPerBlock) continue;
    const auto number = static_cast<uint16_t>(group * wire::kPacketsPerBlock);
    Send(Build(wire::Command::TransferAcknowledgement, number, {}));
    inGroup = 0;
    ++group;
  }
}

BareClient::Datagram BareClient::Build(wire::Command command, uint16_t sequence, std::span<const uint8_t> body) const {
  Datagram datagram(wire::kHeaderSize + body.size());
  std::ranges::copy(body, datagram.begin() + wire::kHeaderSize);
  WriteU32(datagram, wire::kMagicOffset, wire::kMagic);
  datagram[wire::kCommandOffset] = static_cast<uint8_t>(command);
  datagram[wire::kFormatOffset] = wire::kFormatByte;
  datagram[wire::kSenderOffset] = wire::kHostSender;
  WriteU16(datagram, wire::kSequenceOffset, sequence);
  WriteU16(datagram, wire::kLengthOffset, static_cast<uint16_t>(datagram.size()));
  std::ranges::copy(mac_, datagram.begin() + wire::kDestinationMacOffset);
  std::array<uint8_t, 2> counter{};  // the password is empty
  WriteU16(counter, 0, sequence);
  std::ranges::copy(Md5(counter), datagram.begin() + wire::kDigestOffset);
  return datagram;
}

size_t BareClient::Exchange(const Datagram& request) {
  Send(request);
  return Receive();
}

size_t BareClient::Receive() {
  sockaddr_in sender{};
  socklen_t size = sizeof sender;
  const ssize_t received =
      recvfrom(socket_, reply_.data(), reply_.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
  if (received < 0) throw std::runtime_error("the device does not answer the bare client");
  if (ReadU32(reply_, wire::kStatusOffset) != 0) throw std::runtime_error("the device refuses the bare client");
  return static_cast<size_t>(received);
}

void BareClient::Send(const Datagram& datagram) const {
  const auto* device = reinterpret_cast<const sockaddr*>(&device_);
  if (sendto(socket_, datagram.data(), datagram.size(), 0, device, sizeof device_) < 0)
    throw std::runtime_error("the bare client cannot send");
}

}  // namespace media_adapter::bench

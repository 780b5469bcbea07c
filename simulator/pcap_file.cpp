#include "simulator/pcap_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

#include "protocol/little_endian.h"

namespace media_adapter::simulator {
namespace {

constexpr uint32_t kMicrosecondMagic = 0xA1B2C3D4;
constexpr uint32_t kMaxPacketSize = 65535;
constexpr uint32_t kIpv4LinkType = 228;

constexpr size_t kRecordHeaderSize = 16;
constexpr size_t kIpHeaderSize = 20;
constexpr size_t kUdpHeaderSize = 8;
constexpr size_t kIpChecksumOffset = 10;
constexpr uint8_t kTimeToLive = 64;
constexpr uint8_t kUdp = 17;

void WriteBigEndian(std::span<uint8_t> bytes, size_t offset, size_t value) {
  bytes[offset] = static_cast<uint8_t>(value >> 8);
  bytes[offset + 1] = static_cast<uint8_t>(value);
}

uint16_t ChecksumOf(std::span<const uint8_t> header) {
  uint32_t sum = 0;
  for (size_t at = 0; at < header.size(); at += 2) sum += uint32_t{header[at]} << 8 | header[at + 1];
  sum = (sum & 0xFFFF) + (sum >> 16);
  sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

void FillIpHeader(std::span<uint8_t> header, const platform::Endpoint& from, const platform::Endpoint& to,
                  size_t packetSize) {
  header[0] = 0x45;  // version 4, five words
  WriteBigEndian(header, 2, packetSize);
  header[8] = kTimeToLive;
  header[9] = kUdp;
  std::ranges::copy(from.address, header.begin() + 12);
  std::ranges::copy(to.address, header.begin() + 16);
  WriteBigEndian(header, kIpChecksumOffset, ChecksumOf(header));
}

// The checksum stays 0, which says that there is none.
void FillUdpHeader(std::span<uint8_t> header, const platform::Endpoint& from, const platform::Endpoint& to,
                   size_t size) {
  WriteBigEndian(header, 0, from.port);
  WriteBigEndian(header, 2, to.port);
  WriteBigEndian(header, 4, size);
}

}  // namespace

PcapFile::~PcapFile() {
  if (file_ != nullptr) std::fclose(file_);
}

bool PcapFile::Open(const std::string& path, std::string& error) {
  file_ = std::fopen(path.c_str(), "wb");
  if (file_ == nullptr) {
    error = path + ": cannot be opened for writing: " + std::strerror(errno);
    return false;
  }
  std::array<uint8_t, 24> header{};
  WriteU32(header, 0, kMicrosecondMagic);
  WriteU16(header, 4, 2);  // version 2.4
  WriteU16(header, 6, 4);
  WriteU32(header, 16, kMaxPacketSize);
  WriteU32(header, 20, kIpv4LinkType);
  Append(header);
  if (hasFailed_) error = path + ": cannot be written";
  return !hasFailed_;
}

void PcapFile::Write(const platform::Endpoint& from, const platform::Endpoint& to, std::span<const uint8_t> datagram) {
  using namespace std::chrono;
  const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch());
  const auto second = duration_cast<seconds>(now);
  const size_t packetSize = kIpHeaderSize + kUdpHeaderSize + datagram.size();

  std::vector<uint8_t> record(kRecordHeaderSize + packetSize);
  WriteU32(record, 0, static_cast<uint32_t>(second.count()));
  WriteU32(record, 4, static_cast<uint32_t>((now - second).count()));
  WriteU32(record, 8, static_cast<uint32_t>(packetSize));
  WriteU32(record, 12, static_cast<uint32_t>(packetSize));
  const auto packet = std::span(record).subspan(kRecordHeaderSize);
  FillIpHeader(packet.first(kIpHeaderSize), from, to, packetSize);
  FillUdpHeader(packet.subspan(kIpHeaderSize), from, to, kUdpHeaderSize + datagram.size());
  std::ranges::copy(datagram, packet.begin() + kIpHeaderSize + kUdpHeaderSize);
  Append(record);
}

void PcapFile::Append(std::span<const uint8_t> bytes) {
  const bool isWritten = std::fwrite(bytes.data(), 1, bytes.size(), file_) == bytes.size() && std::fflush(file_) == 0;
  hasFailed_ = hasFailed_ || !isWritten;
}

}  // namespace media_adapter::simulator

// A capture of what the simulator receives and sends, in the classic pcap format: raw IPv4 packets, as made up around
// each datagram. Every packet is in the file when Write returns, so that a killed simulator leaves a readable one.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "platform/datagram_socket.h"

namespace media_adapter::simulator {

class PcapFile {
 public:
  PcapFile() = default;
  ~PcapFile();
  PcapFile(const PcapFile&) = delete;
  PcapFile& operator=(const PcapFile&) = delete;

  // Replaces the file. False with `error` in words for a user.
  bool Open(const std::string& path, std::string& error);
  bool IsOpen() const { return file_ != nullptr; }
  void Write(const platform::Endpoint& from, const platform::Endpoint& to, std::span<const uint8_t> datagram);
  // False once something could not be written.
  bool IsWhole() const { return !hasFailed_; }

 private:
  void Append(std::span<const uint8_t> bytes);

  std::FILE* file_ = nullptr;
  bool hasFailed_ = false;
};

}  // namespace media_adapter::simulator

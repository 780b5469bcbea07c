// One UDP socket over IPv4. It is used by one thread; it never blocks, but for a nap that it is told to take. An ICMP
// error from an earlier send is never reported as a datagram or as a failure of the socket.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

namespace media_adapter::platform {

using Ipv4Address = std::array<uint8_t, 4>;  // first octet first

inline constexpr Ipv4Address kBroadcastAddress{255, 255, 255, 255};

struct Endpoint {
  Ipv4Address address{};
  uint16_t port = 0;
  bool operator==(const Endpoint&) const = default;
};

// Starts the system's socket layer, once, before any socket is opened; it stays for the process's life.
bool StartSockets();

class DatagramSocket {
 public:
  DatagramSocket() = default;
  ~DatagramSocket() { Close(); }
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;
  DatagramSocket(DatagramSocket&& other) noexcept : handle_(std::exchange(other.handle_, kNoHandle)) {
    std::swap(hears_, other.hears_);
    std::swap(claim_, other.claim_);
  }
  DatagramSocket& operator=(DatagramSocket&& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(hears_, other.hears_);
    std::swap(claim_, other.claim_);
    return *this;
  }

  // Binds to a free port of `localAddress` (dotted text, read as inet_addr reads it), or of any address when null.
  bool Open(const char* localAddress);
  // Binds to an endpoint that nobody else has, and hears what is sent there; no broadcasts.
  bool Bind(const Endpoint& local);
  // Hears broadcasts to `port`, and nothing else; so may others.
  bool BindToBroadcasts(uint16_t port);
  bool EnableBroadcast();
  bool IsOpen() const { return handle_ != kNoHandle; }
  void Close();

  std::optional<Endpoint> LocalEndpoint() const;

  // Bytes sent, or -1.
  int SendTo(std::span<const uint8_t> datagram, const Endpoint& receiver);
  // A receive that finds nothing may sleep for kNap until something comes, where that costs the system less than a
  // Waiter and a receive: whoever naps notices nothing else meanwhile.
  enum class Patience : uint8_t { None, Nap };
  static constexpr std::chrono::milliseconds kNap{10};

  // Bytes received, or -1: nothing was waiting, or the datagram is longer than the buffer and is gone.
  int ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender, Patience patience = Patience::None);

  // The system's handle, for the waiter of the same platform.
  std::intptr_t Handle() const { return handle_; }

 private:
  static constexpr std::intptr_t kNoHandle = -1;
  std::intptr_t handle_ = kNoHandle;
  enum class Hears : uint8_t { All, Broadcasts, OwnAddress };
  Hears hears_ = Hears::All;  // where the system leaves it to ReceiveFrom
  std::intptr_t claim_ = 0;   // what keeps others off the endpoint, where the system does not
};

}  // namespace media_adapter::platform

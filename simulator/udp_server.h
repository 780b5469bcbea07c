// Devices on real UDP sockets: each on its own address, port 14001, and all of them behind one socket for broadcasts.
// A thin shell around DeviceModel; it decides nothing that a device decides. Single-threaded.
//
// Unless told otherwise it stays on the loopback network: it binds no other address and hears no other sender.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/datagram_socket.h"
#include "platform/waiter.h"
#include "simulator/device_model.h"
#include "simulator/fault_layer.h"
#include "simulator/pcap_file.h"

namespace media_adapter::simulator {

struct ServerOptions {
  FaultOptions faults;
  bool isVerbose = false;
  bool allowsAnyInterface = false;
  std::string writeLogPath;  // empty: none
  std::string pcapPath;      // empty: none
};

class UdpServer {
 public:
  explicit UdpServer(ServerOptions options);
  ~UdpServer();
  UdpServer(const UdpServer&) = delete;
  UdpServer& operator=(const UdpServer&) = delete;

  // Puts a device on its address. False with `error` in words for a user.
  bool Add(std::unique_ptr<DeviceModel> model, std::string& error);
  // Opens the broadcast socket, the write log and the capture, once all devices are there.
  bool Open(std::string& error);
  // Serves until Stop. False with `error` when waiting or one of the files failed.
  bool Run(std::string& error);
  // Ends Run, also one that has not begun. For any thread and for signal handlers.
  void Stop();

 private:
  // Routes of datagrams: i is device i at its address, as many more the device at its former address; an arriving
  // broadcast has the number of devices.
  struct Device {
    std::unique_ptr<DeviceModel> model;
    platform::DatagramSocket socket;
    platform::DatagramSocket formerSocket;  // at the address before, while a reply has to leave from there
    platform::Ipv4Address address{};        // the one that was bound, or could not be
  };

  bool Bind(Device& device, std::string& error);
  void Watch();
  void Receive(size_t route, Time now);
  void Deliver(size_t route, std::span<const uint8_t> datagram, const platform::Endpoint& sender, Time now);
  void DeliverTo(size_t index, std::span<const uint8_t> datagram, const platform::Endpoint& sender, Time now);
  void Send(size_t route, std::vector<Outgoing> outgoing, Time now);
  void Transmit(size_t route, const platform::Endpoint& receiver, std::span<const uint8_t> datagram);
  void RunTimers(Time now);
  bool FollowAddress(Device& device);
  void CloseFormerSocket(size_t index);
  bool LogWrites(Device& device);
  bool AreFilesWhole(std::string& error) const;
  std::optional<Time> NextTime() const;
  void Print(size_t route, const char* direction, const platform::Endpoint& peer, std::span<const uint8_t> datagram,
             const char* remark) const;

  ServerOptions options_;
  std::vector<Device> devices_;
  platform::DatagramSocket broadcast_;
  platform::Waiter waiter_;
  std::atomic<bool> isStopped_ = false;
  FaultLayer arriving_;
  FaultLayer leaving_;
  std::FILE* writeLog_ = nullptr;
  bool hasLogFailed_ = false;
  PcapFile pcap_;
  Time start_{};
  std::array<uint8_t, 65536> buffer_{};  // no UDP datagram is longer
};

}  // namespace media_adapter::simulator

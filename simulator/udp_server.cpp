#include "simulator/udp_server.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/clock.h"
#include "platform/notices.h"
#include "protocol/wire.h"
#include "simulator/datagram_text.h"

namespace media_adapter::simulator {
namespace {

constexpr uint8_t kLoopbackNetwork = 127;  // 127.0.0.0/8
// Apart from any seed that a user is likely to choose for another run, so that both directions differ.
constexpr uint64_t kOtherDirection = 0x9E3779B97F4A7C15;

std::string SystemErrorText() { return std::system_category().message(static_cast<int>(platform::LastSystemError())); }

platform::Endpoint LocalOf(const platform::DatagramSocket& socket) {
  return socket.LocalEndpoint().value_or(platform::Endpoint{});
}

FaultOptions InOtherDirection(FaultOptions options) {
  options.seed ^= kOtherDirection;
  return options;
}

std::string BindError(const platform::Ipv4Address& address) {
  return "cannot bind " + DescribeAddress(address) + ":" + std::to_string(wire::kDevicePort) + ": " + SystemErrorText();
}

}  // namespace

UdpServer::UdpServer(ServerOptions options)
    : options_(std::move(options)),
      arriving_(options_.faults),
      leaving_(InOtherDirection(options_.faults)),
      start_(platform::MonotonicNow()) {}

UdpServer::~UdpServer() {
  if (writeLog_ != nullptr) std::fclose(writeLog_);
}

bool UdpServer::Add(std::unique_ptr<DeviceModel> model, std::string& error) {
  devices_.push_back({std::move(model), {}, {}, {}});
  return Bind(devices_.back(), error);
}

bool UdpServer::Open(std::string& error) {
  if (!options_.writeLogPath.empty()) {
    writeLog_ = std::fopen(options_.writeLogPath.c_str(), "ab");
    if (writeLog_ == nullptr) {
      error = options_.writeLogPath + ": cannot be opened for appending: " + std::strerror(errno);
      return false;
    }
  }
  if (!options_.pcapPath.empty() && !pcap_.Open(options_.pcapPath, error)) return false;
  if (!broadcast_.BindToBroadcasts(wire::kDevicePort)) error = BindError(platform::kBroadcastAddress);
  Watch();
  return broadcast_.IsOpen();
}

bool UdpServer::Bind(Device& device, std::string& error) {
  device.address = device.model->Identity().address;
  if (device.address[0] != kLoopbackNetwork && !options_.allowsAnyInterface) {
    device.socket.Close();
    error =
        DescribeAddress(device.address) + " is not on the loopback network 127.0.0.0/8 (allow it by --any-interface)";
    return false;
  }
  // Not shared: two devices on one address would take each other's datagrams.
  if (!device.socket.Bind({device.address, wire::kDevicePort})) error = BindError(device.address);
  return device.socket.IsOpen();
}

bool UdpServer::Run(std::string& error) {
  while (!isStopped_ && AreFilesWhole(error)) {
    const auto outcome = waiter_.Wait(NextTime());
    if (outcome == platform::Waiter::Outcome::Failed) {
      error = "waiting for datagrams failed: " + SystemErrorText();
      return false;
    }
    const Time now = platform::MonotonicNow();
    // One datagram of each socket and turn: no device starves another.
    const size_t sockets = outcome == platform::Waiter::Outcome::Readable ? devices_.size() + 1 : 0;
    for (size_t route = 0; route < sockets; ++route) {
      if (waiter_.HasFound(route)) Receive(route, now);
    }
    RunTimers(now);
  }
  return AreFilesWhole(error);
}

void UdpServer::Stop() {
  isStopped_ = true;
  waiter_.Wake();
}

// The devices' sockets in their order, and last the one for broadcasts.
void UdpServer::Watch() {
  std::vector<const platform::DatagramSocket*> sockets;
  for (const Device& device : devices_) sockets.push_back(&device.socket);
  sockets.push_back(&broadcast_);
  waiter_.Watch(sockets);
}

bool UdpServer::AreFilesWhole(std::string& error) const {
  if (hasLogFailed_) error = options_.writeLogPath + ": cannot be written";
  if (!pcap_.IsWhole()) error = options_.pcapPath + ": cannot be written";
  return !hasLogFailed_ && pcap_.IsWhole();
}

void UdpServer::Receive(size_t route, Time now) {
  platform::DatagramSocket& socket = route < devices_.size() ? devices_[route].socket : broadcast_;
  platform::Endpoint sender;
  const int size = socket.ReceiveFrom(buffer_, sender);
  if (size < 0) return;  // nothing there, or an error of an earlier send
  const std::span<const uint8_t> datagram = std::span(buffer_).first(static_cast<size_t>(size));
  if (sender.address[0] != kLoopbackNetwork && !options_.allowsAnyInterface) return;
  if (pcap_.IsOpen()) {
    const bool isBroadcast = route == devices_.size();  // of which some systems say that it came to any address
    const auto local =
        isBroadcast ? platform::Endpoint{platform::kBroadcastAddress, wire::kDevicePort} : LocalOf(socket);
    pcap_.Write(sender, local, datagram);
  }
  if (!arriving_.IsActive()) {
    Deliver(route, datagram, sender, now);
  } else {
    arriving_.Enter({{datagram.begin(), datagram.end()}, sender, route}, now);
  }
}

void UdpServer::Deliver(size_t route, std::span<const uint8_t> datagram, const platform::Endpoint& sender, Time now) {
  if (route < devices_.size()) {
    DeliverTo(route, datagram, sender, now);
    return;
  }
  for (size_t i = 0; i < devices_.size(); ++i) DeliverTo(i, datagram, sender, now);
}

void UdpServer::DeliverTo(size_t index, std::span<const uint8_t> datagram, const platform::Endpoint& sender, Time now) {
  Device& device = devices_[index];
  std::vector<Outgoing> replies = device.model->OnDatagram(datagram, sender, now);
  if (options_.isVerbose) Print(index, "<-", sender, datagram, device.model->DropReason());
  // In the log before the host hears of it.
  if (!LogWrites(device)) return;
  // At the new address before the host hears of it, and that from the old one.
  const bool hasMoved = FollowAddress(device);
  Send(hasMoved ? index + devices_.size() : index, std::move(replies), now);
  CloseFormerSocket(index);
}

void UdpServer::Send(size_t route, std::vector<Outgoing> outgoing, Time now) {
  for (Outgoing& datagram : outgoing) {
    if (leaving_.IsActive()) {
      leaving_.Enter({std::move(datagram.bytes), datagram.receiver, route}, now);
    } else {
      Transmit(route, datagram.receiver, datagram.bytes);
    }
  }
}

void UdpServer::Transmit(size_t route, const platform::Endpoint& receiver, std::span<const uint8_t> datagram) {
  Device& device = devices_[route % devices_.size()];
  platform::DatagramSocket& socket = route < devices_.size() ? device.socket : device.formerSocket;
  const bool isSent = socket.SendTo(datagram, receiver) >= 0;
  const std::string trouble = isSent ? "" : SystemErrorText();
  if (pcap_.IsOpen() && isSent) pcap_.Write(LocalOf(socket), receiver, datagram);
  // A datagram that cannot be sent is as good as lost; the protocol gets over that.
  if (options_.isVerbose) Print(route, "->", receiver, datagram, isSent ? nullptr : trouble.c_str());
}

void UdpServer::RunTimers(Time now) {
  while (auto datagram = arriving_.Leave(now)) Deliver(datagram->route, datagram->bytes, datagram->peer, now);
  for (size_t i = 0; i < devices_.size(); ++i) {
    const auto next = devices_[i].model->NextTime();
    if (next && *next <= now) Send(i, devices_[i].model->OnTime(now), now);
  }
  if (!leaving_.IsActive()) return;
  while (const auto datagram = leaving_.Leave(now)) {
    Transmit(datagram->route, datagram->peer, datagram->bytes);
    CloseFormerSocket(datagram->route % devices_.size());
  }
}

// True when the device has a new address, bound or not.
bool UdpServer::FollowAddress(Device& device) {
  if (device.address == device.model->Identity().address) return false;
  const std::string name = device.model->Identity().name;
  const std::string old = DescribeAddress(device.address);
  device.formerSocket = std::move(device.socket);
  std::string error;
  if (Bind(device, error)) {
    std::fprintf(stderr, "device %s moved from %s to %s\n", name.c_str(), old.c_str(),
                 DescribeAddress(device.address).c_str());
  } else {
    std::fprintf(stderr, "device %s left %s and cannot be reached at its new address: %s; it hears broadcasts only\n",
                 name.c_str(), old.c_str(), error.c_str());
  }
  Watch();
  return true;
}

void UdpServer::CloseFormerSocket(size_t index) {
  platform::DatagramSocket& former = devices_[index].formerSocket;
  if (former.IsOpen() && !leaving_.Holds(index + devices_.size())) former.Close();
}

bool UdpServer::LogWrites(Device& device) {
  if (device.model->WriteLog().empty()) return true;
  if (writeLog_ != nullptr) {
    for (const DeviceModel::Write& write : device.model->WriteLog()) {
      std::fprintf(writeLog_, "%u %u", write.sector, write.count);
      if (devices_.size() > 1) std::fprintf(writeLog_, " %s", DescribeAddress(device.address).c_str());
      std::fputc('\n', writeLog_);
    }
    hasLogFailed_ = std::fflush(writeLog_) != 0 || hasLogFailed_;
  }
  device.model->ClearWriteLog();
  return !hasLogFailed_;
}

std::optional<Time> UdpServer::NextTime() const {
  std::optional<Time> next = arriving_.NextTime();
  const auto consider = [&](std::optional<Time> time) {
    if (time && (!next || *time < *next)) next = time;
  };
  consider(leaving_.NextTime());
  for (const Device& device : devices_) consider(device.model->NextTime());
  return next;
}

void UdpServer::Print(size_t route, const char* direction, const platform::Endpoint& peer,
                      std::span<const uint8_t> datagram, const char* remark) const {
  const std::chrono::duration<double> elapsed = platform::MonotonicNow() - start_;
  std::printf("%11.6f %s %s %s:%u %s%s%s%s\n", elapsed.count(),
              devices_[route % devices_.size()].model->Identity().name.c_str(), direction,
              DescribeAddress(peer.address).c_str(), unsigned{peer.port}, DescribeDatagram(datagram).c_str(),
              remark != nullptr ? " (dropped: " : "", remark != nullptr ? remark : "", remark != nullptr ? ")" : "");
  std::fflush(stdout);
}

}  // namespace media_adapter::simulator

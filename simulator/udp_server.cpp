#include "simulator/udp_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "protocol/wire.h"
#include "simulator/datagram_text.h"

namespace media_adapter::simulator {
namespace {

constexpr uint8_t kLoopbackNetwork = 127;  // 127.0.0.0/8
// Apart from any seed that a user is likely to choose for another run, so that both directions differ.
constexpr uint64_t kOtherDirection = 0x9E3779B97F4A7C15;

Time Now() { return std::chrono::steady_clock::now().time_since_epoch(); }

sockaddr_in ToSystem(const platform::Endpoint& endpoint) {
  sockaddr_in system{};
  system.sin_family = AF_INET;
  system.sin_port = htons(endpoint.port);
  std::memcpy(&system.sin_addr, endpoint.address.data(), endpoint.address.size());
  return system;
}

platform::Endpoint FromSystem(const sockaddr_in& system) {
  platform::Endpoint endpoint;
  std::memcpy(endpoint.address.data(), &system.sin_addr, endpoint.address.size());
  endpoint.port = ntohs(system.sin_port);
  return endpoint;
}

FaultOptions InOtherDirection(FaultOptions options) {
  options.seed ^= kOtherDirection;
  return options;
}

timespec ToTimespec(Time duration) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
  return {.tv_sec = seconds.count(), .tv_nsec = (duration - seconds).count()};
}

}  // namespace

bool DeviceSocket::Bind(const platform::Ipv4Address& address, bool isShared, std::string& error) {
  Close();
  handle_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int on = 1;
  const sockaddr_in local = ToSystem({address, wire::kDevicePort});
  if (handle_ >= 0 && (!isShared || setsockopt(handle_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) &&
      bind(handle_, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0) {
    return true;
  }
  error =
      "cannot bind " + DescribeAddress(address) + ":" + std::to_string(wire::kDevicePort) + ": " + std::strerror(errno);
  Close();
  return false;
}

void DeviceSocket::Close() {
  if (handle_ >= 0) close(handle_);
  handle_ = -1;
}

platform::Endpoint DeviceSocket::LocalEndpoint() const {
  sockaddr_in system{};
  socklen_t size = sizeof system;
  getsockname(handle_, reinterpret_cast<sockaddr*>(&system), &size);
  return FromSystem(system);
}

UdpServer::UdpServer(ServerOptions options)
    : options_(std::move(options)),
      arriving_(options_.faults),
      leaving_(InOtherDirection(options_.faults)),
      start_(Now()) {}

UdpServer::~UdpServer() {
  if (writeLog_ != nullptr) std::fclose(writeLog_);
}

bool UdpServer::Add(std::unique_ptr<DeviceModel> model, std::string& error) {
  devices_.push_back({std::move(model), {}, {}, {}});
  return Bind(devices_.back(), error);
}

bool UdpServer::Open(std::string& error) {
  if (!options_.writeLogPath.empty()) {
    writeLog_ = std::fopen(options_.writeLogPath.c_str(), "ae");
    if (writeLog_ == nullptr) {
      error = options_.writeLogPath + ": cannot be opened for appending: " + std::strerror(errno);
      return false;
    }
  }
  if (!options_.pcapPath.empty() && !pcap_.Open(options_.pcapPath, error)) return false;
  return broadcast_.Bind(platform::kBroadcastAddress, true, error);
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
  return device.socket.Bind(device.address, false, error);
}

bool UdpServer::Run(const volatile std::sig_atomic_t& stop, const sigset_t& waitMask, std::string& error) {
  std::vector<pollfd> watched(devices_.size() + 1);
  while (stop == 0 && AreFilesWhole(error)) {
    for (size_t i = 0; i < devices_.size(); ++i) watched[i] = {devices_[i].socket.Handle(), POLLIN, 0};
    watched.back() = {broadcast_.Handle(), POLLIN, 0};

    const auto next = NextTime();
    const timespec timeout = ToTimespec(next ? std::max(*next - Now(), Time{0}) : Time{0});
    if (ppoll(watched.data(), watched.size(), next ? &timeout : nullptr, &waitMask) < 0 && errno != EINTR) {
      error = std::string("waiting for datagrams failed: ") + std::strerror(errno);
      return false;
    }
    const Time now = Now();
    for (size_t i = 0; i < watched.size(); ++i) {
      // One datagram of each socket and turn: no device starves another.
      if (watched[i].revents != 0) Receive(i, now);
    }
    RunTimers(now);
  }
  return AreFilesWhole(error);
}

bool UdpServer::AreFilesWhole(std::string& error) const {
  if (hasLogFailed_) error = options_.writeLogPath + ": cannot be written";
  if (!pcap_.IsWhole()) error = options_.pcapPath + ": cannot be written";
  return !hasLogFailed_ && pcap_.IsWhole();
}

void UdpServer::Receive(size_t route, Time now) {
  const DeviceSocket& socket = route < devices_.size() ? devices_[route].socket : broadcast_;
  sockaddr_in system{};
  socklen_t systemSize = sizeof system;
  const ssize_t size =
      recvfrom(socket.Handle(), buffer_.data(), buffer_.size(), 0, reinterpret_cast<sockaddr*>(&system), &systemSize);
  if (size < 0) return;  // nothing there, or an error of an earlier send
  const std::span<const uint8_t> datagram = std::span(buffer_).first(static_cast<size_t>(size));
  const platform::Endpoint sender = FromSystem(system);
  if (sender.address[0] != kLoopbackNetwork && !options_.allowsAnyInterface) return;
  if (pcap_.IsOpen()) pcap_.Write(sender, socket.LocalEndpoint(), datagram);
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
  const Device& device = devices_[route % devices_.size()];
  const DeviceSocket& socket = route < devices_.size() ? device.socket : device.formerSocket;
  const sockaddr_in system = ToSystem(receiver);
  const ssize_t sent = sendto(socket.Handle(), datagram.data(), datagram.size(), 0,
                              reinterpret_cast<const sockaddr*>(&system), sizeof system);
  if (pcap_.IsOpen() && sent >= 0) pcap_.Write(socket.LocalEndpoint(), receiver, datagram);
  // A datagram that cannot be sent is as good as lost; the protocol gets over that.
  if (options_.isVerbose) Print(route, "->", receiver, datagram, sent < 0 ? std::strerror(errno) : nullptr);
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
  return true;
}

void UdpServer::CloseFormerSocket(size_t index) {
  DeviceSocket& former = devices_[index].formerSocket;
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
  const std::chrono::duration<double> elapsed = Now() - start_;
  std::printf("%11.6f %s %s %s:%u %s%s%s%s\n", elapsed.count(),
              devices_[route % devices_.size()].model->Identity().name.c_str(), direction,
              DescribeAddress(peer.address).c_str(), unsigned{peer.port}, DescribeDatagram(datagram).c_str(),
              remark != nullptr ? " (dropped: " : "", remark != nullptr ? remark : "", remark != nullptr ? ")" : "");
  std::fflush(stdout);
}

}  // namespace media_adapter::simulator

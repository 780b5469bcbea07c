#include "fuzz/fuzz_platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "api/request_gate.h"
#include "api/result_blocks.h"
#include "fat/sector_buffers.h"
#include "fat/volume.h"
#include "platform/adapters.h"
#include "platform/clock.h"
#include "platform/event.h"
#include "platform/local_files.h"
#include "platform/notices.h"
#include "platform/process.h"
#include "platform/raw_file.h"
#include "platform/thread.h"
#include "platform/waiter.h"
#include "protocol/channel.h"
#include "protocol/device_table.h"
#include "protocol/little_endian.h"
#include "protocol/packet.h"
#include "protocol/protocol_state.h"
#include "protocol/wire.h"
#include "worker/handlers.h"

namespace media_adapter::fuzz {
namespace {

// Datagrams under way, in the order of their arrival.
class Mailbox {
 public:
  struct Letter {
    std::array<uint8_t, 2048> bytes;
    size_t size;
    std::chrono::nanoseconds arrival;
  };
  bool IsEmpty() const { return count_ == 0; }
  bool IsFull() const { return count_ == letters_.size(); }
  Letter& Front() { return letters_[first_]; }
  Letter& Append() { return letters_[(first_ + count_++) % letters_.size()]; }
  void Pop() {
    first_ = (first_ + 1) % letters_.size();
    --count_;
  }
  void Clear() { count_ = 0; }

 private:
  std::array<Letter, 32> letters_;
  size_t first_ = 0;
  size_t count_ = 0;
};
Mailbox mailbox;

// The longest wait after one datagram, and what a stream that stands still may add.
constexpr std::chrono::seconds kLongestWait{10};
constexpr std::chrono::seconds kSlack{100};

// What it takes to find that nothing has come.
constexpr std::chrono::microseconds kOneLook{1};

}  // namespace

Network network;
std::map<std::string, std::vector<uint8_t>> localFiles;

void Deliver(std::span<const uint8_t> datagram) {
  if (mailbox.IsFull()) return;
  Mailbox::Letter& letter = mailbox.Append();
  letter.size = std::min(datagram.size(), letter.bytes.size());
  std::copy_n(datagram.begin(), letter.size, letter.bytes.begin());
  letter.arrival = network.now + network.latency;
}

void StartWithOneDevice() {
  ResetPackets({});
  ResetProtocol();
  ResetVolume();
  OpenChannel();
  WorkerChannel().queue.Watch(&WorkerChannel().deviceSocket);
  DeviceEntry& entry = deviceTable.entries[0];
  std::ranges::copy(kDevice.address, entry.ipAddress);
  std::ranges::copy(kDeviceMac, entry.macAddress);
  deviceTable.count = 1;
  searchResult.deviceCount = 1;
}

void Stop() {
  FreeSectorBuffers();
  CloseChannel();
  network = {};
  mailbox.Clear();
  localFiles.clear();
}

void Run(RequestRecord record) {
  const auto start = network.now;
  const uint32_t sentBefore = network.sent;
  HandleRequest(record);
  const auto bound = kLongestWait * (network.sent - sentBefore) + kSlack;
  if (network.now - start > bound) Breach("a request took too long", network.sent - sentBefore);
}

bool IsExplained(uint32_t status) {
  const bool isOfLibrary = status <= 4 || (status >= 236 && status <= 255);
  return isOfLibrary || std::ranges::find(network.statuses, status) != network.statuses.end();
}

void Breach(const char* what, uint64_t number) {
  std::fprintf(stderr, "BREACH: %s (%llu)\n", what, static_cast<unsigned long long>(number));
  std::abort();
}

void PutReplyHeader(std::span<const uint8_t> request, uint8_t command, uint32_t status, size_t bodySize,
                    std::span<uint8_t> reply) {
  CopyBytes(request.first(wire::kHeaderSize), reply);
  reply[wire::kCommandOffset] = command;
  reply[wire::kSenderOffset] = wire::kDeviceSender;
  WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(wire::kHeaderSize + bodySize));
  CopyBytes(kDeviceMac, reply.subspan(wire::kSourceMacOffset));
  WriteU32(reply, wire::kStatusOffset, status);
  network.statuses.push_back(status);
}

uint8_t Input::Byte() {
  if (bytes_.empty()) return 0;
  const uint8_t byte = bytes_.front();
  bytes_ = bytes_.subspan(1);
  return byte;
}

uint16_t Input::U16() {
  const uint8_t low = Byte();
  return static_cast<uint16_t>(low | Byte() << 8);
}

uint32_t Input::U32() {
  const uint16_t low = U16();
  return low | static_cast<uint32_t>(U16()) << 16;
}

std::span<const uint8_t> Input::Bytes(size_t count) {
  const auto taken = bytes_.first(std::min(count, bytes_.size()));
  bytes_ = bytes_.subspan(taken.size());
  return taken;
}

uint32_t Input::Status() {
  constexpr std::array<uint32_t, 11> kSpecial = {0xFFFFFFFF, 244, 249, 253, 251, 1, 5, 6, 7, 9, 49};
  const size_t choice = Byte() % (kSpecial.size() + 1);
  return choice < kSpecial.size() ? kSpecial.at(choice) : U32();
}

}  // namespace media_adapter::fuzz

namespace media_adapter::platform {

using fuzz::mailbox;
using fuzz::network;

std::chrono::nanoseconds MonotonicNow() { return network.now; }
LocalTime CurrentLocalTime() { return {}; }
void Sleep(std::chrono::milliseconds duration) { network.now += duration; }
void AllowUnloading(bool (*)()) {}
MacAddress FirstAdapterAddress() { return {}; }
void ShowError(const char*) {}
void TraceLine(const char*) {}
uint32_t ProcessId() { return 1; }
uint32_t LastSystemError() { return 0; }

struct Event::Impl {};
Event::Event() = default;
Event::~Event() = default;
void Event::Set() {}
bool Event::Wait(std::chrono::milliseconds) { return false; }

struct Thread::Impl {};
Thread::Thread() = default;
Thread::~Thread() = default;
bool Thread::Start(void (*)()) { return false; }
bool Thread::Wait(std::chrono::milliseconds) { return true; }
bool Thread::StopByForce() { return true; }

struct Waiter::Impl {};
Waiter::Waiter() = default;
Waiter::~Waiter() = default;
void Waiter::Wake() {}
void Waiter::Watch(const DatagramSocket*) {}
Waiter::Outcome Waiter::Wait(std::optional<std::chrono::nanoseconds> deadline) {
  if (!mailbox.IsEmpty() && (!deadline || mailbox.Front().arrival <= *deadline)) {
    network.now = std::max(network.now, mailbox.Front().arrival);
    return Outcome::Readable;
  }
  if (!deadline) return Outcome::Failed;
  network.now = std::max(network.now, *deadline);
  return Outcome::TimedOut;
}

bool StartSockets() { return true; }
bool DatagramSocket::Open(const char*) { return true; }
bool DatagramSocket::EnableBroadcast() { return true; }
void DatagramSocket::Close() {}
std::optional<Ipv4Address> DatagramSocket::LocalAddress() const { return std::nullopt; }

int DatagramSocket::SendTo(std::span<const uint8_t> datagram, const Endpoint&) {
  ++network.sent;
  network.onSend(datagram);
  return static_cast<int>(datagram.size());
}

int DatagramSocket::ReceiveFrom(std::span<uint8_t> buffer, Endpoint& sender, Patience) {
  if (mailbox.IsEmpty() || mailbox.Front().arrival > network.now) {
    network.now += fuzz::kOneLook;
    return -1;
  }
  const auto& letter = mailbox.Front();
  mailbox.Pop();
  if (letter.size > buffer.size()) return -1;
  std::copy_n(letter.bytes.begin(), letter.size, buffer.begin());
  sender = fuzz::kDevice;
  return static_cast<int>(letter.size);
}

// A file's handle is the place of its bytes in fuzz::localFiles.
std::vector<uint8_t>& BytesOf(FileHandle file) { return *reinterpret_cast<std::vector<uint8_t>*>(file); }

FileHandle OpenRegularFile(const std::string& path, FileUse use) {
  if (use == FileUse::Read && !fuzz::localFiles.contains(path)) return kNoFile;
  std::vector<uint8_t>& bytes = fuzz::localFiles[path];
  if (use == FileUse::Replace) bytes.clear();
  return reinterpret_cast<FileHandle>(&bytes);
}

std::optional<uint64_t> FileSize(FileHandle file) { return BytesOf(file).size(); }

int64_t ReadAt(FileHandle file, std::span<uint8_t> buffer, uint64_t offset) {
  const auto rest = std::span(BytesOf(file)).subspan(std::min<size_t>(offset, BytesOf(file).size()));
  const auto now = rest.first(std::min(rest.size(), buffer.size()));
  CopyBytes(now, buffer);
  return static_cast<int64_t>(now.size());
}

int64_t WriteAt(FileHandle file, std::span<const uint8_t> bytes, uint64_t offset) {
  std::vector<uint8_t>& stored = BytesOf(file);
  stored.resize(std::max<size_t>(stored.size(), offset + bytes.size()));
  CopyBytes(bytes, std::span(stored).subspan(offset));
  return static_cast<int64_t>(bytes.size());
}

bool CloseFile(FileHandle) { return true; }

Interruptible::Interruptible() { before_ = 0; }
Interruptible::~Interruptible() = default;

std::optional<LocalFileInfo> FindLocalFile(const std::string& path) {
  if (!fuzz::localFiles.contains(path)) return std::nullopt;
  return LocalFileInfo{.name = path.substr(path.rfind('/') + 1), .attributes = 0x20, .lastWrite = {}};
}

bool IsHostSeparator(char c) { return c == '/'; }
char HostSeparator() { return '/'; }
bool EndsInSeparator(const std::string& folder) { return folder.ends_with('/') || folder.ends_with('\\'); }

}  // namespace media_adapter::platform

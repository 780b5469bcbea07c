// A media adapter in software: a pure function of the datagrams that reach it and of time. It does no I/O but through
// its Storage. The UDP server drives it with real datagrams, tests drive it in process on a virtual clock.
//
// What it says where a real device might differ: a storage failure is status 49 (the host asks again), a sector range
// past the device's end or a count other than 1 and 2 is status 8 (asking again would not help), an element of a wrong
// size is 1, an element that does not belong there is 2. RFADisconnect succeeds without a connection, so that its
// retransmission does.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/adapters.h"
#include "platform/datagram_socket.h"
#include "simulator/datagrams.h"
#include "simulator/file_stream.h"
#include "simulator/settings_store.h"
#include "simulator/storage.h"
#include "simulator/test_reporter.h"

namespace media_adapter::simulator {

struct DeviceIdentity {
  platform::Ipv4Address address{};
  platform::MacAddress mac{};
  std::string name;      // at most 16 bytes
  std::string password;  // at most 16 bytes
};

// Faults that a device itself can show.
struct Behaviour {
  uint32_t busyReplies = 0;                       // so many file-access requests (32 to 40) are answered 5 first
  std::optional<uint32_t> writesBeforeDeath{};    // the device falls silent when it has taken so many writes
  std::optional<uint32_t> writesBeforeRefusal{};  // the writes after so many are answered with status 8,
  uint32_t refusals = 1;                          // so many of them
  std::vector<uint16_t> unknownElements{};        // class * 256 + index: asked for or written, they are answered 2
  std::vector<uint16_t> untoldElements{};         // left out of replies
  uint32_t reportedSectorSize = kSectorSize;      // what RFAConnect reports
  std::chrono::milliseconds repeatInterval{200};  // unacknowledged stream packets are repeated this often,
  uint32_t repeatLimit = 50;                      // at most this many times without any acknowledgement
};

class DeviceModel {
 public:
  DeviceModel(DeviceIdentity identity, std::unique_ptr<Storage> storage, Behaviour behaviour = {});

  // A datagram that reached this device, by its address or by broadcast. Returns what the device sends, in order.
  // After an accepted change of its address the identity holds the new one, while the reply belongs to the old one.
  std::vector<Outgoing> OnDatagram(std::span<const uint8_t> datagram, const platform::Endpoint& sender, Time now);
  // What the device sends by itself when the time has come: repeats of the stream, test reports.
  std::vector<Outgoing> OnTime(Time now);
  // When OnTime wants to be called next; none when the device waits for datagrams only.
  std::optional<Time> NextTime() const;

  // As after a loss of power: no connection, no transfer.
  void Restart();

  // Why the last datagram was dropped, in a few words; null when it was not.
  const char* DropReason() const { return dropReason_; }

  const DeviceIdentity& Identity() const { return identity_; }
  Behaviour& Faults() { return behaviour_; }
  Storage& Disk() { return *storage_; }
  DeviceSettingsStore& Settings() { return settings_; }

  // The accepted RFAWriteData requests since the start or the last clearing, in order.
  struct Write {
    uint32_t sector;
    uint32_t count;
    bool operator==(const Write&) const = default;
  };
  const std::vector<Write>& WriteLog() const { return writeLog_; }
  void ClearWriteLog() { writeLog_.clear(); }

 private:
  struct Call;
  struct CommandRow;
  static const CommandRow* FindCommand(uint8_t command);

  void Answer(const CommandRow& row, Call& call);
  DeviceStatus CheckAccess(const CommandRow& row, const Request& request);
  bool HasRightDigest(const Request& request) const;
  void EndStreamByCommand(const Request& request);

  DeviceStatus Search(Call& call);
  DeviceStatus ChangeConfiguration(Call& call);
  DeviceStatus ReadConfiguration(Call& call);
  DeviceStatus StartTest(Call& call);
  DeviceStatus Connect(Call& call);
  DeviceStatus Disconnect(Call& call);
  DeviceStatus ReadSectors(Call& call);
  DeviceStatus WriteSectors(Call& call);
  DeviceStatus StartTransfer(Call& call);
  DeviceStatus TakeAcknowledgement(Call& call);

  DeviceIdentity identity_;
  std::unique_ptr<Storage> storage_;
  Behaviour behaviour_;
  DeviceSettingsStore settings_;
  TestReporter reports_;
  std::optional<FileStream> stream_;
  Datagram lastRequest_;  // the last authenticated request that is no acknowledgement
  bool isConnected_ = false;
  const char* dropReason_ = nullptr;
  uint32_t writeCount_ = 0;  // taken since the start
  std::vector<Write> writeLog_;
};

}  // namespace media_adapter::simulator

// The wire format: what both sides of the protocol write and read. Library and simulator share this header, and nothing
// here knows which of them uses it.
//
// A datagram is a 44-byte header, little-endian, and a body of items:
//
//   offset width  field            request (from the host)          reply (from the device)
//        0     4  magic            0x78563412                       the same
//        4     1  command          1 to 42                          the request's + 1
//        5     1  formatByte       1                                1
//        6     1  senderKind       2                                1
//        7     1  reserved         0
//        8     2  sequence         bits 0-13 counter, 14-15 tag     repeated (codes 11 and 41: the device's own)
//       10     2  length           of the whole datagram            the same
//       12     6  sourceMac        the host's                       the device's
//       18     6  destinationMac   the device's; FF.. in a Search
//       24     4  status           0; 9 in a 42 with a list         the device's status
//       28    16  digest           MD5(password, counter); 0 in a Search
//
//   item: class (1), index (1), size (2), value (size); items follow each other without padding
#pragma once

#include <cstddef>
#include <cstdint>

namespace media_adapter::wire {

inline constexpr uint32_t kMagic = 0x78563412;
inline constexpr uint8_t kFormatByte = 1;
inline constexpr uint8_t kHostSender = 2;
inline constexpr uint8_t kDeviceSender = 1;
inline constexpr uint16_t kDevicePort = 14001;

inline constexpr size_t kMagicOffset = 0;
inline constexpr size_t kCommandOffset = 4;
inline constexpr size_t kFormatOffset = 5;
inline constexpr size_t kSenderOffset = 6;
inline constexpr size_t kReservedOffset = 7;
inline constexpr size_t kSequenceOffset = 8;
inline constexpr size_t kLengthOffset = 10;
inline constexpr size_t kSourceMacOffset = 12;
inline constexpr size_t kDestinationMacOffset = 18;
inline constexpr size_t kStatusOffset = 24;
inline constexpr size_t kDigestOffset = 28;
inline constexpr size_t kDigestSize = 16;
inline constexpr size_t kHeaderSize = 44;

inline constexpr size_t kItemHeaderSize = 4;
inline constexpr size_t kMaxBodySize = 1500;
inline constexpr size_t kMaxDatagramSize = kHeaderSize + kMaxBodySize;

inline constexpr uint16_t kSequenceMask = 0x3FFF;  // the counter's 14 bits
inline constexpr size_t kMaxPasswordLength = 16;

// Command codes. A reply's code is its request's + 1.
enum class Command : uint8_t {
  Search = 1,
  SetConfiguration = 3,  // also SetIPConfiguration, which goes to every host
  GetConfiguration = 5,
  SetTest = 7,
  TestReport = 11,  // unsolicited
  RFAConnect = 32,
  RFADisconnect = 34,
  RFAReadData = 36,
  RFAWriteData = 38,
  RFAStartTransfer = 40,
  TransferData = 41,
  TransferAcknowledgement = 42,
};

// Element classes that are not settings.
inline constexpr uint8_t kTestClass = 15;
inline constexpr uint8_t kFileAccessClass = 16;

// Indices of the file-access class.
inline constexpr uint8_t kSectorIndex = 1;          // u32
inline constexpr uint8_t kSectorCountIndex = 2;     // u16
inline constexpr uint8_t kDataIndex = 3;            // sector or file bytes
inline constexpr uint8_t kLastSectorIndex = 4;      // u32
inline constexpr uint8_t kSectorSizeIndex = 5;      // u32
inline constexpr uint8_t kMissingPacketsIndex = 6;  // u16 each

// A streamed file travels in blocks of 4096 bytes, each as three packets of 1400, 1400 and 1296 bytes, numbered from 1
// in 14 bits.
inline constexpr uint32_t kBlockSize = 4096;
inline constexpr uint32_t kPacketSize = 1400;
inline constexpr uint32_t kPacketsPerBlock = 3;
inline constexpr uint32_t kMaxPacketNumber = 0x3FFF;

}  // namespace media_adapter::wire

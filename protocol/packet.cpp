#include "protocol/packet.h"

#include <algorithm>
#include <array>

#include "protocol/little_endian.h"
#include "protocol/md5.h"

namespace media_adapter {
namespace {

constexpr uint32_t kListFollows = 9;  // status of an acknowledgement that asks again for packets
constexpr int kTagShift = 14;

struct SendBuffer {
  std::array<uint8_t, wire::kMaxDatagramSize> bytes{};  // the reserved byte is never written
  size_t length{};
  uint16_t sequenceCounter{};
  platform::MacAddress hostMac{};
};
SendBuffer sendBuffer;

// The digests of a password for counters in a row. They are made together: between two exchanges the processor forgets
// code, and reading that of MD5 anew takes longer than running it.
struct DigestRun {
  Password password;
  uint16_t first = 0;
  std::array<Md5Digest, 16> digests{};
};
DigestRun digestRun;

Md5Digest DigestOf(std::string_view password, uint16_t counter) {
  std::array<uint8_t, MEDIA_ADAPTER_MAX_PASSWORD + 2> input{};
  std::ranges::copy(password, input.begin());
  WriteU16(input, password.size(), counter);
  return Md5(std::span(input).first(password.size() + 2));
}

[[gnu::cold]] void MakeDigests(const Password& password, uint16_t first) {
  digestRun = {.password = password, .first = first};
  for (Md5Digest& digest : digestRun.digests) digest = DigestOf(password, first++);
}

const Md5Digest& NextDigest(const Password& password, uint16_t counter) {
  const bool isKnown = static_cast<uint16_t>(counter - digestRun.first) < digestRun.digests.size();
  if (!isKnown || digestRun.password != password) MakeDigests(password, counter);
  return digestRun.digests[counter - digestRun.first];
}

uint32_t StatusField(wire::Command command, size_t bodySize) {
  return command == wire::Command::TransferAcknowledgement && bodySize != 0 ? kListFollows : 0;
}

}  // namespace

void ResetPackets(const platform::MacAddress& hostMac) {
  sendBuffer = {};
  sendBuffer.hostMac = hostMac;
  MakeDigests({}, 0);
}

[[gnu::hot]] std::span<uint8_t> RequestBody() { return std::span(sendBuffer.bytes).subspan(wire::kHeaderSize); }

[[gnu::hot]] void BuildHeader(wire::Command command, size_t bodySize, const platform::MacAddress& target,
                              uint8_t requestTag, const Password& password) {
  const std::span<uint8_t> header = std::span(sendBuffer.bytes).first(wire::kHeaderSize);
  const uint16_t counter = sendBuffer.sequenceCounter;
  sendBuffer.length = wire::kHeaderSize + bodySize;

  WriteU32(header, wire::kMagicOffset, wire::kMagic);
  header[wire::kCommandOffset] = static_cast<uint8_t>(command);
  header[wire::kFormatOffset] = wire::kFormatByte;
  header[wire::kSenderOffset] = wire::kHostSender;
  WriteU16(header, wire::kLengthOffset, static_cast<uint16_t>(sendBuffer.length));
  std::ranges::copy(sendBuffer.hostMac, header.begin() + wire::kSourceMacOffset);
  WriteU32(header, wire::kStatusOffset, StatusField(command, bodySize));

  const auto destination = header.subspan(wire::kDestinationMacOffset, target.size());
  const auto digest = header.subspan(wire::kDigestOffset, wire::kDigestSize);
  if (command == wire::Command::Search) {
    WriteU16(header, wire::kSequenceOffset, counter);
    std::ranges::fill(destination, uint8_t{0xFF});
    std::ranges::fill(digest, uint8_t{0});
  } else {
    WriteU16(header, wire::kSequenceOffset, static_cast<uint16_t>((requestTag & 3) << kTagShift | counter));
    std::ranges::copy(target, destination.begin());
    const bool isInTurn = command != wire::Command::TransferAcknowledgement;  // of the counter
    std::ranges::copy(isInTurn ? NextDigest(password, counter) : DigestOf(password, counter), digest.begin());
  }
  SetSequenceCounter(static_cast<uint16_t>(counter + 1));
}

[[gnu::hot]] std::span<const uint8_t> BuiltRequest() { return std::span(sendBuffer.bytes).first(sendBuffer.length); }

[[gnu::hot]] uint16_t BuiltSequence() { return ReadU16(sendBuffer.bytes, wire::kSequenceOffset); }

uint16_t SequenceCounter() { return sendBuffer.sequenceCounter; }

void SetSequenceCounter(uint16_t value) { sendBuffer.sequenceCounter = value & wire::kSequenceMask; }

}  // namespace media_adapter

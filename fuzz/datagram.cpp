// What a hostile device can answer. The input picks requests, and for each datagram that they send a few replies: with
// a proper header and a body of the fuzzer's, or altogether the fuzzer's own.
#include <algorithm>
#include <cstdlib>

#include "fuzz/fuzz_platform.h"
#include "protocol/little_endian.h"
#include "protocol/packet.h"
#include "protocol/wire.h"

namespace media_adapter::fuzz {
namespace {

constexpr int kMaxRequests = 8;
constexpr size_t kMaxReplies = 4;
constexpr size_t kMaxBody = 1600;  // some of them too long for the library's buffer

enum Kind : uint8_t { kBody, kReport, kData, kRaw, kKinds };

std::vector<uint8_t> Reply(std::span<const uint8_t> request, Kind kind, uint8_t status, std::vector<uint8_t> body) {
  if (kind == kRaw) return body;
  std::vector<uint8_t> reply(request.begin(), request.begin() + wire::kHeaderSize);
  reply[wire::kSenderOffset] = wire::kDeviceSender;
  if (kind == kReport) {
    reply[wire::kCommandOffset] = static_cast<uint8_t>(wire::Command::TestReport);
    body.resize(16);
  } else if (kind == kData) {
    reply[wire::kCommandOffset] = static_cast<uint8_t>(wire::Command::TransferData);
    if (body.size() > 1) std::copy_n(body.begin(), 2, reply.begin() + wire::kSequenceOffset);
  } else {
    ++reply[wire::kCommandOffset];
  }
  std::ranges::copy(kDeviceMac, reply.begin() + wire::kSourceMacOffset);
  WriteU32(reply, wire::kStatusOffset, status);
  reply.insert(reply.end(), body.begin(), body.end());
  WriteU16(reply, wire::kLengthOffset, static_cast<uint16_t>(reply.size()));
  return reply;
}

RequestRecord Request(Input& input) {
  RequestRecord record;
  record.id = static_cast<RequestId>(static_cast<uint32_t>(RequestId::Search) + input.Byte() % 12);
  record.text = "";
  record.devicePath = input.Byte() % 2 == 0 ? "\\" : "\\A\\B";
  record.localPath = "/nowhere";
  record.elements = {0x0100, 0x0A00};
  record.elementCount = 2;
  record.configuration.emplace();
  record.ipConfiguration.emplace();
  record.testParameters.emplace();
  return record;
}

void RunInput(std::span<const uint8_t> bytes) {
  Input input(bytes);
  StartWithOneDevice();
  network.onSend = [&](std::span<const uint8_t> request) {
    for (size_t replies = input.Byte() % kMaxReplies; replies > 0; --replies) {
      const auto kind = static_cast<Kind>(input.Byte() % kKinds);
      const uint8_t status = input.Byte() % 8 == 0 ? input.Byte() : 0;
      const size_t size = (input.Byte() * 256U + input.Byte()) % kMaxBody;
      network.incoming.push_back(Reply(request, kind, status, input.Bytes(size)));
    }
  };
  for (int i = 0; i < kMaxRequests && !input.IsEmpty(); ++i) Run(Request(input));
  Stop();
}

}  // namespace
}  // namespace media_adapter::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  media_adapter::fuzz::RunInput({data, size});
  return 0;
}

// What a hostile device can answer. The input picks requests, and for each datagram that they send a few replies: with
// a proper header, any status and a body of the fuzzer's, or altogether the fuzzer's own.
#include <algorithm>

#include "api/result_blocks.h"
#include "fuzz/fuzz_platform.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"

namespace media_adapter::fuzz {
namespace {

constexpr int kMaxRequests = 8;
constexpr size_t kMaxReplies = 4;
constexpr size_t kMaxBody = 1600;  // some of them too long for the library's buffer

enum Kind : uint8_t { kBody, kReport, kData, kRaw, kKinds };

void Reply(std::span<const uint8_t> request, Input& input) {
  const auto kind = static_cast<Kind>(input.Byte() % kKinds);
  const uint32_t status = input.Byte() % 4 == 0 ? input.Status() : 0;
  const auto body = input.Bytes(input.U16() % kMaxBody);
  if (kind == kRaw) return Deliver(body);

  std::array<uint8_t, wire::kHeaderSize + kMaxBody> reply;
  size_t size = body.size();
  auto command = static_cast<uint8_t>(request[wire::kCommandOffset] + 1);
  if (kind == kReport) {
    command = static_cast<uint8_t>(wire::Command::TestReport);
    size = std::min<size_t>(size, 16);
  } else if (kind == kData) {
    command = static_cast<uint8_t>(wire::Command::TransferData);
  }
  PutReplyHeader(request, command, status, size, reply);
  if (kind == kData) WriteU16(reply, wire::kSequenceOffset, input.U16());
  std::copy_n(body.begin(), size, reply.begin() + wire::kHeaderSize);
  Deliver(std::span(reply).first(wire::kHeaderSize + size));
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

uint32_t StatusOf(RequestId id) {
  switch (id) {
    case RequestId::Search:
      return 0;
    case RequestId::GetConfiguration:
      return configurationResult.status;
    case RequestId::SetTest:
      return testResult.status;
    case RequestId::RFAReadData:
      return readDataResult.status;
    default:
      return statusResult.status;
  }
}

void RunInput(std::span<const uint8_t> bytes) {
  Input input(bytes);
  StartWithOneDevice();
  localFiles["/nowhere"].resize(100);
  network.onSend = [&](std::span<const uint8_t> request) {
    for (size_t replies = input.Byte() % kMaxReplies; replies > 0; --replies) Reply(request, input);
  };
  for (int i = 0; i < kMaxRequests && !input.IsEmpty(); ++i) {
    RequestRecord record = Request(input);
    const RequestId id = record.id;
    network.statuses.clear();
    Run(std::move(record));
    const uint32_t status = StatusOf(id);
    if (!IsExplained(status)) Breach("a status that nobody sent", status);
    const bool isSearch = id == RequestId::Search;
    if (status == 0 && !isSearch && std::ranges::count(network.statuses, 0U) == 0) Breach("success without a reply");
  }
  Stop();
}

}  // namespace
}  // namespace media_adapter::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  media_adapter::fuzz::RunInput({data, size});
  return 0;
}

// What a hostile device can answer. The input picks requests, and for each datagram that they send a few replies: with
// a proper header, any status and a body of the fuzzer's, or altogether the fuzzer's own.
#include <algorithm>
#include <map>

#include "api/result_blocks.h"
#include "fuzz/fuzz_world.h"
#include "protocol/little_endian.h"
#include "protocol/wire.h"

namespace media_adapter::fuzz {
namespace {

constexpr int kMaxRequests = 8;
constexpr size_t kMaxReplies = 4;
constexpr size_t kMaxBody = 1600;  // some of them too long for the library's buffer

enum Kind : uint8_t { kBody, kReport, kData, kRaw, kKinds };

void Reply(World& world, const Datagram& request, Choices& input) {
  const size_t kind = input.Below(kKinds);
  const uint32_t status = input.OneIn(4) ? input.Status() : 0;
  auto body = input.Bytes(input.Below(kMaxBody));
  if (kind == kRaw) return world.Deliver({body.begin(), body.end()});
  if (kind == kReport) body = body.first(std::min<size_t>(body.size(), 16));
  Datagram numbered = request;
  if (kind == kData) WriteU16(numbered, wire::kSequenceOffset, static_cast<uint16_t>(input.Below(0x10000)));
  const std::array<uint8_t, kRaw> commands = {static_cast<uint8_t>(request[wire::kCommandOffset] + 1),
                                              static_cast<uint8_t>(wire::Command::TestReport),
                                              static_cast<uint8_t>(wire::Command::TransferData)};
  world.Reply(numbered, commands.at(kind), status, body);
}

RequestRecord Request(Choices& input) {
  RequestRecord record;
  record.id = static_cast<RequestId>(static_cast<uint32_t>(RequestId::Search) + input.Below(12));
  record.text = "";
  record.devicePath = input.OneIn(2) ? "\\" : "\\A\\B";
  record.localPath = record.id == RequestId::RFAWriteData ? LocalFiles() / "file" : LocalFiles().Path().string();
  record.elements = {0x0100, 0x0A00};
  record.elementCount = 2;
  record.configuration.emplace();
  record.ipConfiguration.emplace();
  record.testParameters.emplace();
  return record;
}

uint32_t StatusOf(RequestId id) {
  static const std::map<RequestId, const uint32_t*> ofItsOwn = {
      {RequestId::GetConfiguration, &configurationResult.status},
      {RequestId::SetTest, &testResult.status},
      {RequestId::RFAReadData, &readDataResult.status}};
  if (id == RequestId::Search) return 0;
  const auto own = ofItsOwn.find(id);
  return own != ofItsOwn.end() ? *own->second : statusResult.status;
}

void RunInput(std::span<const uint8_t> bytes) {
  Choices input(bytes);
  sim::WriteWholeFile(LocalFiles() / "file", sim::Bytes(100));
  World world([&](const LoggedDatagram& datagram) {
    for (size_t replies = input.Below(kMaxReplies); replies > 0; --replies) Reply(world, datagram.bytes, input);
    return Fate{.copies = 0};
  });
  for (int i = 0; i < kMaxRequests && !input.IsAtEnd(); ++i) {
    RequestRecord record = Request(input);
    const RequestId id = record.id;
    world.statuses.clear();
    world.Run(std::move(record));
    const uint32_t status = StatusOf(id);
    if (!world.IsExplained(status)) Breach("a status that nobody sent", status);
    const bool isSearch = id == RequestId::Search;
    if (status == 0 && !isSearch && std::ranges::count(world.statuses, 0U) == 0) Breach("success without a reply");
  }
}

}  // namespace
}  // namespace media_adapter::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  media_adapter::fuzz::RunInput({data, size});
  return 0;
}

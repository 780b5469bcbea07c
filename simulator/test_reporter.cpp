#include "simulator/test_reporter.h"

#include "protocol/wire.h"

namespace media_adapter::simulator {
namespace {

// The first of the three counters' elements; the others follow it.
constexpr uint8_t kFirstCounterIndex = 13;

}  // namespace

void TestReporter::Start(const platform::Endpoint& receiver, const platform::MacAddress& host, Time now) {
  receiver_ = receiver;
  host_ = host;
  reportsLeft_ = kReports;
  next_ = now + kInterval;
}

void TestReporter::OnTime(Time now, const platform::MacAddress& device, std::vector<Outgoing>& out) {
  if (reportsLeft_ == 0 || now < next_) return;
  const uint8_t first = reportsLeft_ % 2 == 0 ? 0 : 2;
  const uint8_t end = first == 0 ? 2 : 3;
  Datagram report = BeginDatagram(static_cast<uint8_t>(wire::Command::TestReport), sequence_, device, host_,
                                  wire::kItemHeaderSize * 4);
  for (uint8_t i = first; i < end; ++i) {
    AppendNumber(report, wire::kTestClass, static_cast<uint8_t>(kFirstCounterIndex + i), ++counters_[i]);
  }
  FinishDatagram(report, DeviceStatus::Success);
  out.push_back({receiver_, std::move(report)});

  sequence_ = (sequence_ + 1) & wire::kSequenceMask;
  --reportsLeft_;
  next_ = now + kInterval;
}

std::optional<Time> TestReporter::NextTime() const { return reportsLeft_ == 0 ? std::nullopt : std::optional(next_); }

}  // namespace media_adapter::simulator

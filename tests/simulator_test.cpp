// The simulated device on its own: what the library cannot show of it. Which bad requests it drops and which it
// refuses, that its stream follows the FAT and starts and ends as the host says, its image file. Each test is the host
// itself: a Pair builds requests and gives them to a device model with a disk in memory.

#include <gtest/gtest.h>

#include "protocol/md5.h"
#include "tests/support/library_fixture.h"
#include "tests/support/volume_view.h"

namespace media_adapter::simulator {
namespace {

using namespace std::chrono_literals;
using sim::BodyOf;
using sim::Bytes;
using sim::Item;
using sim::NumberOf;
using wire::Command;

constexpr platform::MacAddress kMac = {2, 0, 127, 0, 0, 11};
constexpr platform::Endpoint kHost = {{127, 0, 0, 1}, 5000};

Bytes Sectors(uint32_t sector, std::optional<uint32_t> count = {}, const Bytes& data = {}) {
  return sim::Join({Item(16, wire::kSectorIndex, NumberOf(sector, 4)),
                    count ? Item(16, wire::kSectorCountIndex, NumberOf(*count, 2)) : Bytes{},
                    data.empty() ? data : Item(16, wire::kDataIndex, data)});
}

// A device and a host that builds its requests.
struct Pair {
  explicit Pair(Bytes disk = Bytes(64 * 1024))
      : device({{127, 0, 0, 11}, kMac, "player", "secret"}, std::make_unique<MemoryStorage>(std::move(disk))) {}

  Bytes Build(Command command, const Bytes& body = {}, std::optional<uint16_t> sequence = {}) {
    const uint16_t number = sequence.value_or(counter++);
    const Bytes input = {'s', 'e', 'c', 'r', 'e', 't', uint8_t(number), uint8_t(number >> 8 & 0x3F)};
    Bytes datagram = BeginDatagram(uint8_t(command), number, {1, 2, 3, 4, 5, 6}, kMac, 0);
    datagram[wire::kSenderOffset] = wire::kHostSender;
    std::ranges::copy(Md5(input), datagram.begin() + wire::kDigestOffset);
    datagram.insert(datagram.end(), body.begin(), body.end());
    FinishDatagram(datagram, DeviceStatus::Success);
    return datagram;
  }
  std::vector<Outgoing> Give(const Bytes& datagram) { return device.OnDatagram(datagram, kHost, now); }
  Bytes Ask(Command command, const Bytes& body = {}) {
    const auto out = Give(Build(command, body));
    return out.size() == 1 ? out[0].bytes : Bytes(wire::kHeaderSize);
  }
  uint32_t StatusOf(Command command, const Bytes& body = {}) {
    const Bytes reply = Ask(command, body);
    EXPECT_EQ(reply[wire::kCommandOffset], uint8_t(command) + 1);
    return ReadU32(reply, wire::kStatusOffset);
  }
  std::vector<Outgoing> Acknowledge(uint16_t number) {
    return Give(Build(Command::TransferAcknowledgement, {}, number));
  }
  Bytes& Disk() { return static_cast<MemoryStorage&>(device.Disk()).Bytes(); }

  DeviceModel device;
  uint16_t counter = 0;
  Time now{};
};

TEST(SimulatedDevice, DropsWhatIsNotForItAndAnswersTheRest) {
  Pair pair;
  const Bytes good = pair.Build(Command::RFAConnect, {}, uint16_t{0x4007});
  for (const size_t damaged : {wire::kMagicOffset, wire::kCommandOffset, wire::kFormatOffset, wire::kSenderOffset,
                               wire::kLengthOffset, wire::kDestinationMacOffset}) {
    Bytes bad = good;
    bad[damaged] = 99;
    EXPECT_TRUE(pair.Give(bad).empty()) << damaged;
    EXPECT_NE(pair.device.DropReason(), nullptr);
  }
  EXPECT_TRUE(pair.Give(Bytes(good.begin(), good.end() - 1)).empty());

  const Bytes reply = pair.Give(good).at(0).bytes;
  EXPECT_EQ(pair.device.DropReason(), nullptr);
  EXPECT_EQ(ReadU16(reply, wire::kSequenceOffset), 0x4007);
  EXPECT_TRUE(std::ranges::equal(kMac, std::span(reply).subspan(wire::kSourceMacOffset, 6)));
  EXPECT_EQ(pair.Give(good).at(0).bytes, reply) << "a retransmission is answered again";

  for (const Command command : {Command::RFAConnect, Command::RFAStartTransfer}) {
    Bytes wrong = pair.Build(command, {}, uint16_t{1});  // a transfer is refused by its first packet
    wrong[wire::kDigestOffset] ^= 1;
    const Bytes refusal = pair.Give(wrong).at(0).bytes;
    EXPECT_EQ(refusal[wire::kCommandOffset], uint8_t(command) + 1);
    EXPECT_EQ(ReadU16(refusal, wire::kSequenceOffset), 1);
    EXPECT_EQ(ReadU32(refusal, wire::kStatusOffset), 3u);
  }
  Bytes search = pair.Build(Command::Search);
  search[wire::kDigestOffset] ^= 1;
  std::ranges::fill(std::span(search).subspan(wire::kDestinationMacOffset, 6), uint8_t{0xFF});
  EXPECT_EQ(ReadU32(pair.Give(search)[0].bytes, wire::kStatusOffset), 0u);
}

TEST(SimulatedDevice, ChecksEveryFileAccess) {
  Pair pair;
  const Bytes two(1024, 0xA5);
  EXPECT_EQ(pair.StatusOf(Command::RFAReadData, Sectors(0, 1)), 7u);
  pair.device.Faults().busyReplies = 1;
  EXPECT_EQ(pair.StatusOf(Command::RFAConnect), 5u);
  EXPECT_EQ(pair.StatusOf(Command::RFAConnect), 0u);
  const std::vector<std::pair<Bytes, uint32_t>> reads = {{Sectors(126, 2), 0},        {Sectors(127, 2), 8},
                                                         {Sectors(0xFFFFFFFF, 2), 8}, {Sectors(0, 3), 8},
                                                         {{16, 1, 2, 0, 0, 0}, 1},    {Sectors(0), 8}};
  for (const auto& [body, status] : reads) EXPECT_EQ(pair.StatusOf(Command::RFAReadData, body), status);
  EXPECT_EQ(pair.StatusOf(Command::RFAWriteData, Sectors(5, 1, two)), 1u);
  EXPECT_TRUE(pair.device.WriteLog().empty());
  EXPECT_EQ(pair.StatusOf(Command::RFAWriteData, Sectors(5, 2, two)), 0u);
  EXPECT_EQ(pair.device.WriteLog(), (std::vector<DeviceModel::Write>{{5, 2}}));
  EXPECT_EQ(BodyOf(pair.Ask(Command::RFAReadData, Sectors(5, 2))), Item(16, wire::kDataIndex, two));
}

TEST(SimulatedDevice, StoresSettingsOnlyWhenAllAreGood) {
  Pair pair;
  DeviceSettingsStore& settings = pair.device.Settings();
  const Bytes before(settings.Image().begin(), settings.Image().end());
  const std::vector<std::pair<Bytes, uint32_t>> refused = {{{9, 0, 1, 0, 1, 8, 1, 1, 0, 15}, 2},  // a good value first
                                                           {{8, 1, 2, 0, 1, 1}, 1},               // size
                                                           {{0, 2, 1, 0, 'n'}, 2},                // not to be written
                                                           {{8, 1, 1, 0, 3, 8, 1, 9, 0}, 8},      // past the end
                                                           {{10, 0, 4, 0, 33, 0, 0, 0}, 2},       // too long a list
                                                           {{10, 0, 4, 0, 1, 0, 0, 0}, 1},  // a list without its entry
                                                           {{1, 0, 4, 0, 255, 255, 255, 255}, 2}};  // nobody's address
  for (const auto& [bad, status] : refused) EXPECT_EQ(pair.StatusOf(Command::SetConfiguration, bad), status);
  EXPECT_TRUE(std::ranges::equal(before, settings.Image()));

  for (const Bytes& unknown : {Bytes{9, 3}, Bytes{1, 6}}) {
    EXPECT_EQ(pair.StatusOf(Command::GetConfiguration, unknown), 2u);
  }
  EXPECT_EQ(pair.StatusOf(Command::SetConfiguration, {1, 0, 4, 0, 127, 0, 0, 21}), 0u);
  EXPECT_EQ(pair.device.Identity().address, (platform::Ipv4Address{127, 0, 0, 21}));
}

std::vector<uint32_t> ChainOf(Storage& storage, uint32_t startSector) {
  FatChain chain(storage, startSector);
  std::vector<uint32_t> sectors;
  for (auto run = chain.Next(8); run && run->count != 0 && sectors.size() < 20000; run = chain.Next(8)) {
    for (uint32_t i = 0; i < run->count; ++i) sectors.push_back(run->sector + i);
  }
  return sectors;
}

TEST(FatChain, FollowsTheVolumeAndNothingElse) {
  using List = std::vector<uint32_t>;
  const std::map<uint32_t, uint16_t> links = {{2, 3},   {3, 4},   {4, 700},     {700, 5}, {5, 4202}, {9, 4203},
                                              {10, 11}, {11, 10}, {12, 0xFFF7}, {13, 0},  {14, 1},   {4202, 0xFFF8}};
  for (const uint32_t start : {0u, 63u}) {
    sim::VolumeImage disk = sim::Made({.partitionStart = start});
    const sim::VolumeView view(disk);
    for (const auto& [cluster, next] : links) view.SetLink(cluster, next);
    const uint32_t data = view.data, end = disk.SectorCount();
    EXPECT_EQ(ChainOf(disk, data), (List{data, data + 1, data + 2, data + 698, data + 3, data + 4200}));
    for (const uint32_t alone : {9u, 12u, 13u, 14u, 4202u})
      EXPECT_EQ(ChainOf(disk, data + alone - 2).size(), 1u) << alone;
    EXPECT_EQ(ChainOf(disk, data + 8).size(), end - data) << "a loop ends";
    EXPECT_EQ(ChainOf(disk, data - 1).size(), end - data + 1) << "no data area: to the end";
    disk.SetSectorCount(end + 3);
    EXPECT_EQ(ChainOf(disk, end), (List{end, end + 1, end + 2})) << "behind the volume, too";
  }
  sim::VolumeImage disk = sim::Made({.sectorsPerCluster = 4, .partitionStart = 63});
  const sim::VolumeView view(disk);
  view.SetLink(2, 4);
  view.SetLink(4, 0xFFFF);
  EXPECT_EQ(ChainOf(disk, 118), (List{118, 119, 124, 125, 126, 127})) << "from within a cluster";
}

TEST(FileStream, StartsAgainAndEndsAsTheHostOrTheStorageSays) {
  Pair pair(sim::Pattern(80 * kSectorSize));
  const Bytes connect = pair.Build(Command::RFAConnect), start = pair.Build(Command::RFAStartTransfer, Sectors(0));
  const auto firstNumber = [](const auto& out) { return ReadU16(out.at(0).bytes, wire::kSequenceOffset); };
  pair.Give(connect);
  EXPECT_EQ(firstNumber(pair.Give(start)), 1);
  EXPECT_EQ(firstNumber(pair.Acknowledge(3)), 7);
  const auto again = pair.Give(pair.Build(Command::TransferAcknowledgement, {16, 6, 4, 0, 5, 0, 9, 0}, uint16_t{6}));
  ASSERT_EQ(again.size(), 2u) << "what the host asks for, and nothing else";
  EXPECT_EQ(firstNumber(again), 5);
  EXPECT_TRUE(pair.Acknowledge(3).empty()) << "a repeated acknowledgement moves nothing";
  EXPECT_TRUE(pair.Acknowledge(12).empty()) << "nor does one of packets that were never sent";
  EXPECT_EQ(firstNumber(pair.Give(start)), 1);
  EXPECT_EQ(firstNumber(pair.Acknowledge(9)), 10) << "the host was further than the new start";
  pair.Give(connect);
  EXPECT_TRUE(pair.device.NextTime()) << "a late duplicate does not end the stream";
  pair.Ask(Command::RFAConnect);
  EXPECT_FALSE(pair.device.NextTime());
  EXPECT_TRUE(pair.Acknowledge(12).empty());

  pair.Give(start);
  size_t repeats = 0;
  while (const auto next = pair.device.NextTime()) repeats += pair.device.OnTime(pair.now = *next).size();
  EXPECT_EQ(repeats, 6u * pair.device.Faults().repeatLimit);

  pair.Give(start);
  pair.Disk().resize(20 * kSectorSize);
  const auto failed = pair.Acknowledge(3);
  EXPECT_EQ(firstNumber(failed), 7);
  EXPECT_EQ(ReadU32(failed.at(0).bytes, wire::kStatusOffset), 49u) << "the storage fails";
}

TEST(FileStorage, KeepsWritesAndIsUsedOnce) {
  const sim::TempFolder folder;
  const std::string path = folder / "image";
  sim::WriteWholeFile(path, Bytes(2048, 'a'));
  std::string error;
  const auto storage = FileStorage::Open(path, error);
  ASSERT_NE(storage, nullptr) << error;
  EXPECT_EQ(FileStorage::Open(path, error), nullptr);
  EXPECT_TRUE(storage->Write(3, Bytes(512, 'b')));
  EXPECT_FALSE(storage->Write(3, Bytes(1024, 'c')));
  Bytes expected(2048, 'a');
  std::fill_n(expected.begin() + 1536, 512, 'b');
  EXPECT_EQ(sim::ReadWholeFile(path), expected);
}

}  // namespace
}  // namespace media_adapter::simulator

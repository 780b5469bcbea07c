// Reading files: the receive window, alone and in a stream that loses packets, files as large as stream and volume
// allow, disks and chains that end before them, and the rules of the local file.
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "fileops/receive_window.h"
#include "protocol/md5.h"
#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

// ---- The receive window

constexpr uint16_t kWrong = 1000;  // on top of a packet's number: it brings other bytes

// What packet `arrival` carries of a file; past its end what nobody asked for.
Bytes PacketOf(const Bytes& content, uint16_t arrival) {
  const size_t i = arrival % kWrong == 0 ? 0 : arrival % kWrong - 1U;
  const size_t offset = i / 3 * wire::kBlockSize + i % 3 * wire::kPacketSize;
  Bytes data(i % 3 == 2 ? wire::kBlockSize - 2 * wire::kPacketSize : wire::kPacketSize, 0xEE);
  for (size_t k = 0; arrival < kWrong && k < data.size() && offset + k < content.size(); ++k)
    data[k] = content[offset + k];
  return data;
}

std::string Describe(uint16_t number, std::span<const uint16_t> missing) {
  std::string text = " " + std::to_string(number), separator = "[";
  for (const uint16_t packet : missing) text += std::exchange(separator, ",") + std::to_string(packet);
  return text + (missing.empty() ? "" : "]");
}

// "3[1,2] 3": request again with number 3 for packets 1 and 2, then acknowledgement 3.
TEST(Window, AcknowledgesGroupsAndAsksAgainForWhatIsMissing) {
  const struct {
    uint32_t size;
    std::vector<uint16_t> arrivals;
    const char* sends;
    std::vector<uint32_t> totals = {};
  } rows[] = {
      {100, {1}, "3"},
      {1400, {1}, "3"},
      {4096, {1, 2, 3}, "3"},
      {4096, {1, 3, 2}, "3[2] 3"},
      {4097, {1, 2, 3, 4}, "3 6"},
      {5000, {1, 2, 3, 4}, "3 6"},
      {9000, {1, 1, 2, 2, 3, 4, 5, 6, 7}, "3 6 9", {1400, 1400, 2800, 2800, 4096, 5496, 6896, 8192, 9000}},
      {9000, {1, 3, 3, 2, 4, 5, 6, 7}, "3[2] 3[2] 3 6 9", {1400, 2696, 2696, 4096, 5496, 6896, 8192, 9000}},
      {9000, {1, 2, 4, 5, 6, 3, 7}, "3[3] 3 6 9"},
      {9000, {1, 4, 5, 6, 2, 3, 7}, "3[2,3] 3 6 9"},
      {9000, {1, 4, 3, 2, 5, 6, 7}, "3[2,3] 3[2] 3 6 9"},
      {9000, {1, 2, 3, 4, 5, 6, 6, 3, 4, 5, 7}, "3 6 6 3 9"},
      {9000, {1, 2, 3, 6, 4, 5, 7}, "3 6[4,5] 6 9"},
      {9000, {7, 1, 2, 3, 10, 4, 5, 6, 7}, "3 6 9"},
      {9000, {1, 2, 0, 3, 4, 5, 6, 7}, "0 3 6 9"},  // a number that no packet has
      {9000, {1, 2, 3, 4, 5, 7, 6}, "3 6[6] 6 9"},
      {9000, {1, 2, 4, 3, 5, 7, 6}, "3[3] 3 6[6] 6 9"},
      {9000, {1, 2, 3, 4, 5, 6, kWrong + 3, kWrong + 1, 7}, "3 6 3 9"},
  };
  for (const auto& row : rows) {
    const Bytes content = Pattern(row.size);
    Bytes file(row.size);
    std::string sends;
    std::vector<uint32_t> totals;
    ReceiveWindow window(1, row.size);
    for (const uint16_t arrival : row.arrivals) {
      EXPECT_FALSE(window.IsComplete()) << row.sends;
      const uint16_t number = arrival % kWrong;
      const auto place = window.PlaceOf(number);
      const Bytes data = PacketOf(content, arrival);
      ASSERT_LE(place.offset + place.room, file.size());
      const auto count = std::min<size_t>(place.room, data.size());
      if (place.isInWindow) std::copy_n(data.begin(), count, file.begin() + place.offset);
      for (const auto& each : window.Accept(number, static_cast<uint32_t>(count))) {
        sends += Describe(each.number, each.Missing());
      }
      totals.push_back(window.Total());
    }
    EXPECT_TRUE(window.IsComplete());
    EXPECT_EQ(sends, std::string(" ") + row.sends);
    EXPECT_TRUE(row.totals.empty() || totals == row.totals) << testing::PrintToString(totals);
    EXPECT_EQ(file, content) << row.sends;
  }
}

// A file of seven packets, in three groups.
class StreamTest : public WritingTest {
 protected:
  void SetUp() override {
    WritingTest::SetUp();
    Insert(Made({}, "/F9000:9000"));
  }
  // Reads the file; packets for which `isLost` says so do not arrive. Tells the status, what was sent, and the progress
  // whenever something was sent.
  std::string Run(const std::function<bool(uint16_t number)>& isLost) {
    std::string progresses;
    uint32_t progress = 0;
    const auto look = [&] { progresses += " " + std::to_string(std::atomic_ref(progress).load()); };
    Lose([&](const LoggedDatagram& datagram) {
      if (IsRequest(datagram, Command::TransferAcknowledgement)) look();
      return IsReplyTo(datagram, Command::RFAStartTransfer) && isLost(SequenceOf(datagram.bytes));
    });
    Mark();
    std::string outcome = std::to_string(Read("\\F9000", "d", &progress)->status);
    look();
    for (const auto& sent : Sent(Command::TransferAcknowledgement)) {
      std::vector<uint16_t> missing;
      for (size_t at = wire::kHeaderSize + wire::kItemHeaderSize; at < sent.bytes.size(); at += 2) {
        missing.push_back(ReadU16(sent.bytes, at));
      }
      outcome += Describe(SequenceOf(sent.bytes), missing);
    }
    world.fate = nullptr;
    return outcome + ";" + progresses;
  }
  const Bytes content_ = Pattern(9000);
};

TEST_F(StreamTest, SaysInTheRightBytesWhatTheWindowSends) {
  EXPECT_EQ(Run([lost = 0](uint16_t number) mutable { return (number == 4 || number == 5) && lost++ < 2; }),
            "0 3 6[4,5] 6 9; 31 45 84 84 100");
  EXPECT_EQ(ReadWholeFile("d/F9000"), content_);
  const auto sent = Sent(Command::TransferAcknowledgement);
  EXPECT_EQ(sent[0].bytes.size(), wire::kHeaderSize);
  EXPECT_EQ(ReadU32(sent[0].bytes, wire::kStatusOffset), 0U);
  EXPECT_EQ(ReadU16(sent[1].bytes, wire::kLengthOffset), wire::kHeaderSize + 8);
  EXPECT_EQ(ReadU32(sent[1].bytes, wire::kStatusOffset), 9U);
  EXPECT_EQ(BodyOf(sent[1].bytes), (Bytes{0x10, 6, 4, 0, 4, 0, 5, 0}));
  Bytes digestInput(kPassword, kPassword + 6);
  digestInput.insert(digestInput.end(), {6, 0});
  EXPECT_TRUE(std::ranges::equal(Md5(digestInput), Slice(sent[1].bytes, wire::kDigestOffset, wire::kDigestSize)));
  EXPECT_EQ(sent[1].receiver, (Endpoint{{127, 0, 0, 11}, wire::kDevicePort}));
}

TEST_F(StreamTest, TheLastAcknowledgementIsWhatTheTimerRepeats) {
  device_->Faults().repeatLimit = 0;
  EXPECT_EQ(Run([](uint16_t number) { return number > 4; }), "253 3 3 3 3; 31 61 61 61 100");
  const auto sent = Sent(Command::TransferAcknowledgement);
  ASSERT_EQ(sent.size(), 4U);
  EXPECT_EQ(Timeline(Command::TransferAcknowledgement), (Milliseconds{0, 3000, 6000, 10500, 19500}));
  for (const auto& datagram : sent) EXPECT_EQ(datagram.bytes, sent[0].bytes);
  EXPECT_EQ(ReadWholeFile("d/F9000"), Slice(content_, 0, 5496));
}

TEST_F(StreamTest, PacketsAreTakenByTheirNumbersAndNeverMakeAWrongFile) {
  const auto changed = [&](uint16_t number, const std::function<Datagram(const Datagram&)>& change) {
    ChangeReplies(Command::RFAStartTransfer, SIZE_MAX, [=](Datagram& bytes, Endpoint&) {
      if (SequenceOf(bytes) == number) bytes = change(bytes);
    });
    return Read("\\F9000", "d")->status;
  };
  const auto tagged = [](Datagram bytes) {
    WriteU16(bytes, wire::kSequenceOffset, SequenceOf(bytes) | 0xC000);
    return bytes;
  };
  EXPECT_EQ(changed(2, tagged), 0U) << "14 bits are the number";
  EXPECT_EQ(ReadWholeFile("d/F9000"), content_);
  EXPECT_EQ(changed(2, [](const Datagram& bytes) { return WithBody(bytes, {}); }), 253U) << "no data";
  EXPECT_EQ(changed(2, [](const Datagram& bytes) { return WithBody(bytes, Item(16, 3, Bytes(1399, 1))); }), 253U);
  EXPECT_EQ(changed(2, [](const Datagram& bytes) { return WithBody(bytes, Item(16, 1, Bytes(4))); }), 253U);
  for (const uint32_t status : {5U, 9U, 49U, 100U}) {
    EXPECT_EQ(changed(3, [=](const Datagram& bytes) { return WithStatus(bytes, status); }), status);
    EXPECT_EQ(ReadWholeFile("d/F9000"), Slice(content_, 0, 2800));
  }
}

// A device that repeats itself, or never hears what it is told, holds the worker for a minute and no longer.
TEST_F(StreamTest, ATransferThatBringsNothingNewEnds) {
  const auto isHeld = [&] { return (world.Now() - Sent(Command::RFAStartTransfer).front().time) / 1s; };
  device_->Faults().repeatLimit = 1000000;
  Lose([](const LoggedDatagram& datagram) { return IsRequest(datagram, Command::TransferAcknowledgement); });
  Mark();
  EXPECT_EQ(Read("\\F9000")->status, 253U);
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 0U);
  EXPECT_EQ(isHeld(), 60);
  ChangeReplies(Command::RFAStartTransfer, SIZE_MAX,
                [](Datagram& bytes, Endpoint&) { bytes[wire::kSequenceOffset] = 1; });
  Mark();
  EXPECT_EQ(Read("\\F9000")->status, 253U);
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 0U);
  EXPECT_EQ(isHeld(), 60);
  world.fate = nullptr;
  EXPECT_EQ(Read("\\F9000")->status, 0U);
}

// ---- Files of the device

using ReadingTest = WritingTest;

TEST_F(ReadingTest, WhatTheVolumeCannotHoldIsNotRead) {
  Insert(Made({}));
  const uint32_t last = View().lastCluster;
  const Bytes content = Pattern((last - 1) * 512);
  Insert(Made({}, "/FILE:" + std::to_string(content.size())));
  EXPECT_EQ(Get("\\FILE"), content) << "all of the volume";
  const Slot entry = View().Slots()[0];
  const auto read = [&](uint32_t cluster, size_t size) {
    WriteU16(entry, slot::kClusterLow, static_cast<uint16_t>(cluster));
    WriteU32(entry, slot::kSize, static_cast<uint32_t>(size));
    Mark();
    const uint32_t status = Read("\\FILE", "d")->status;
    EXPECT_EQ(Sent(Command::RFAStartTransfer).empty(), status == 251 || size == 0);
    EXPECT_TRUE(status != 0 || ReadWholeFile("d/FILE").size() == size);
    return status;
  };
  EXPECT_EQ(read(2, content.size() + 1), 251U);
  EXPECT_TRUE(ReadWholeFile("d/FILE").empty());
  EXPECT_EQ(read(0, 1000), 0U);
  EXPECT_EQ(ReadWholeFile("d/FILE"), Slice(content, 0, 1000)) << "0 stands for the first cluster";
  EXPECT_EQ(read(1, 1000), 251U);
  EXPECT_EQ(read(last, 512), 0U);
  EXPECT_EQ(read(last + 1, 512), 251U);
  EXPECT_EQ(read(last + 1, 0), 0U) << "an empty file's cluster means nothing";
}

// While it lives, no local file grows beyond `room` bytes.
class FullDisk {
 public:
  explicit FullDisk(rlim_t room) {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{room, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
};

class LargeFileTest : public ReadingTest, public ::testing::WithParamInterface<uint32_t> {};

// More than packet numbers reach: the stream brings 5461 blocks, sector reads the rest.
TEST_P(LargeFileTest, ArrivesWhole) {
  constexpr size_t kStreamed = 16383 / 3 * 4096;
  const uint32_t sectorsPerCluster = GetParam();
  const Bytes content = Pattern(29'999'489);
  Insert(Made({.sectorsPerCluster = sectorsPerCluster, .clusters = 65000}, "/FILE:29999489"));
  const VolumeView view = View();
  uint32_t progress = 0;
  Mark();
  EXPECT_EQ(Read("\\FILE", "d", &progress)->status, 0U);
  EXPECT_TRUE(ReadWholeFile("d/FILE") == content);
  EXPECT_EQ(progress, 100U);
  EXPECT_EQ(Sent(Command::RFAStartTransfer).size(), 1U);
  size_t sectors = 0;
  for (const auto& read : Sent(Command::RFAReadData)) {
    const uint16_t count = ReadU16(read.bytes, 56);
    EXPECT_LE(count, std::min(2U, sectorsPerCluster));
    if (ReadU32(read.bytes, 48) >= view.data) sectors += count;
  }
  const size_t behindTheEnd = sectorsPerCluster == 1 ? 0 : 1;  // of the last pair
  EXPECT_EQ(sectors, (content.size() - kStreamed + 511) / 512 + behindTheEnd);

  // Replies to reads from `first` to `last` reach the library as `change` makes them.
  const auto readWith = [&](uint32_t first, uint32_t last, const std::function<Datagram(const Datagram&)>& change) {
    world.fate = [=, sector = 0U](const LoggedDatagram& datagram) mutable -> Fate {
      if (IsRequest(datagram, Command::RFAReadData)) sector = ReadU32(datagram.bytes, 48);
      if (!IsReplyTo(datagram, Command::RFAReadData) || sector < first || sector > last) return {};
      return {.bytes = change(datagram.bytes)};
    };
    const uint32_t status = Read("\\FILE", "d")->status;
    world.fate = nullptr;
    return status;
  };
  const auto shorter = [](const Datagram& bytes) { return WithBody(bytes, Item(16, 3, Bytes(511))); };
  EXPECT_EQ(readWith(view.data, UINT32_MAX, shorter), 253U) << "without the last byte of a sector";
  const auto refused = [](const Datagram& bytes) { return WithStatus(bytes, 8); };
  EXPECT_EQ(readWith(view.fat, view.root - 1, refused), 8U) << "a FAT that cannot be read";

  // A local disk that is full in the stream and behind it.
  for (const rlim_t room : {1'000'000U, 25'000'000U}) {
    const FullDisk disk(room);
    EXPECT_EQ(Read("\\FILE", "d")->status, 244U);
    EXPECT_EQ(ReadWholeFile("d/FILE"), Slice(content, 0, room));
  }

  // A chain that ends early, or leads out of the volume: what it does not hold cannot be read, and is not made up.
  const size_t clusterSize = size_t{sectorsPerCluster} * 512, clusters = content.size() / clusterSize - 4;
  for (const uint32_t link : {0xFFFFU, 0xFFF0U}) {
    view.SetLink(static_cast<uint32_t>(1 + clusters), link);
    EXPECT_EQ(Read("\\FILE", "d")->status, 251U);
    EXPECT_TRUE(ReadWholeFile("d/FILE") == Slice(content, 0, clusters * clusterSize));
  }
}

INSTANTIATE_TEST_SUITE_P(SectorsPerCluster, LargeFileTest,
                         ::testing::Values(1, 16));  // 16: the stream ends inside a cluster

// ---- The local file

class LocalFileTest : public ReadingTest {
 protected:
  void SetUp() override {
    ReadingTest::SetUp();
    Insert(Made({}, "/Music|/Music/Song.mp3:2000|/Music/up_.._down.txt:2000"));
    // The long name of the last file becomes up/../down.txt, which only this host takes for a path.
    for (const Slot part : View().Slots(ClusterIn(View().Entries()["MUSIC      "]))) {
      if (part[slot::kAttributes] == slot::kLongName && part[1] == 'u' && part[5] == '_') part[5] = part[14] = '/';
    }
  }
  const Bytes content_ = Pattern(2000);
};

TEST_F(LocalFileTest, AFolderLosesOneTrailingSeparator) {
  const std::string folder = Downloads().Path().string();
  for (const auto& [text, left] :
       {std::pair{folder + "/", folder}, {folder + "\\", folder}, {folder + "//", folder + "/"}, {folder, folder}}) {
    std::filesystem::remove(Downloads() / "Song.mp3");
    EXPECT_EQ(Read("\\Music\\Song.mp3", text)->status, 0U) << text;
    EXPECT_EQ(folderText, left);
    EXPECT_EQ(Downloaded("Song.mp3"), content_);
  }
  EXPECT_EQ(Read("\\Music", folder + "/")->status, 0U);
  EXPECT_EQ(folderText, folder + "/") << "a listing does not look at the folder";
  // Spelled like the device path, over what is there.
  WriteWholeFile(Downloads() / "sONG.MP3", Bytes(9999));
  EXPECT_EQ(Read("x\\MUSIC\\sONG.MP3")->status, 0U);
  EXPECT_EQ(Downloaded("sONG.MP3"), content_);
}

TEST_F(LocalFileTest, LengthsAreLimited) {
  const auto read = [](char* folder) { return API_RFAReadData("\\Music\\Song.mp3", folder, 0, kPassword, 0)->status; };
  std::string empty, longest(260, 'x');
  Mark();
  EXPECT_EQ(read(nullptr), 243U);
  EXPECT_EQ(read(empty.data()), 243U);
  EXPECT_EQ(read(longest.data()), 243U);
  std::string folder = Downloads().Path().string();
  while (folder.size() < 249) {
    folder += "/" + std::string(std::min<size_t>(100, 250 - folder.size() - 1), 'f');
    std::filesystem::create_directory(folder);
  }
  ASSERT_EQ(folder.size(), 250U);
  EXPECT_EQ(Read("\\Music\\Song.mp3", folder + "/")->status, 0U) << "250 and /Song.mp3 are 259";
  EXPECT_EQ(ReadWholeFile(folder + "/Song.mp3"), content_);
  std::filesystem::create_directory(folder + "h");
  Mark();
  EXPECT_EQ(Read("\\Music\\Song.mp3", folder + "h")->status, 243U);
  EXPECT_TRUE(Sent(Command::RFAStartTransfer).empty());
}

TEST_F(LocalFileTest, WhatOnlyItsClosingWritesIsNotLostSilently) {
  const FullDisk disk(1999);
  EXPECT_EQ(Read("\\Music\\Song.mp3")->status, 244U);
  EXPECT_EQ(Downloaded("Song.mp3"), Slice(content_, 0, 1999));
}

TEST_F(LocalFileTest, WhatCannotBeCreatedIsRefusedBeforeTheTransfer) {
  const std::string folder = Downloads().Path().string();
  std::filesystem::create_directory(Downloads() / "song.mp3");
  ASSERT_EQ(mkfifo((Downloads() / "SONG.MP3").c_str(), 0600), 0);
  Mark();
  EXPECT_EQ(Read("\\Music\\song.mp3")->status, 244U) << "a folder has that name";
  EXPECT_EQ(Read("\\Music\\SONG.MP3")->status, 244U) << "a pipe";
  EXPECT_EQ(Read("\\Music\\Song.mp3", folder + "/missing")->status, 244U);
  EXPECT_EQ(Read("\\Music\\Song.mp3\\")->status, 244U) << "the name behind the last separator is empty";
  std::filesystem::create_directory(Downloads() / "up");
  std::filesystem::create_directory(Downloads() / "up/inner");
  EXPECT_EQ(Read("\\Music\\up/../down.txt")->status, 244U);
  EXPECT_TRUE(Sent(Command::RFAStartTransfer).empty());
  EXPECT_FALSE(std::filesystem::exists(Downloads() / "down.txt"));
}

}  // namespace
}  // namespace media_adapter::sim

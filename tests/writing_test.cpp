// Copying files to the device: the order of requests and their number, what is refused, and a failure of every single
// exchange. A device holds a volume of mkfs.fat and mtools; what any history leaves of one is the soak's subject.
#include <sys/stat.h>

#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

constexpr VolumeShape kSmall{.sectorsPerCluster = 4, .rootEntries = 32};

TEST_F(WritingTest, FilesAreStoredInTheirOrder) {
  Insert(Made(kSmall));
  EXPECT_EQ(Trace(Put("New File.txt", Pattern(1000))),
            "0 r:root0-root1 r:root0 r:fat0 w:c2.0-c2.1 r:root0 r:root0-root1 w:root0 w:fat0");
  const Bytes last = BodyOf(Sent(Command::RFAWriteData)[1].bytes);
  EXPECT_EQ(Slice(last, 18 + 488, 24), Slice(Pattern(1000), 488, 24)) << "what was there stays behind the file's end";
  EXPECT_EQ(Trace(Put("empty", {})), "0 r:root0-root1 r:root0 r:root0 w:root0");
  EXPECT_EQ(Trace(Put("NEW FILE.TXT", Pattern(2049))),  // over the first
            "0 r:root0 r:fat0 w:fat0 r:fat0 w:c2.0-c3.0 r:root0 w:root0 w:fat0");
  EXPECT_EQ(Trace(Put("New File.txt", {})), "0 r:root0 r:fat0 w:fat0 r:root0 w:root0");
  WriteU16(View().Entries()["EMPTY      "], slot::kClusterLow, 9);  // an empty file's cluster means nothing
  EXPECT_EQ(Trace(Put("EMPTY", Pattern(1))), "0 r:root0 r:fat0 w:c2.0 r:root0 w:root0 w:fat0");
  // A chain over two FAT sectors, linked and freed.
  for (uint32_t cluster = 3; cluster < 254; ++cluster) View().SetLink(cluster, 0xFFFF);
  EXPECT_EQ(Trace(Put("LARGE", Pattern(3 * 2048 + 1))),
            "0 r:root0-root1 r:root0 r:fat0-fat1 w:c254.0-c257.0 r:root0 w:root0 r:fat0-fat1 w:fat0-fat1");
  EXPECT_EQ(Trace(Put("LARGE", Pattern(100))),
            "0 r:root0 r:fat0-fat1 w:fat0-fat1 r:fat0 w:c254.0 r:root0 w:root0 w:fat0");
  Insert(Made({32, 1}));
  EXPECT_EQ(Trace(Put("BIG", Pattern(150 * 512))),
            "0 r:fat0 r:c2.0 r:c2.0 r:fat1 w:c3.0-c152.0 r:c2.0 w:c2.0 r:fat0-fat1 w:fat0-fat1");
  EXPECT_EQ(Sent().size(), Requests().size()) << "nothing is sent twice";
}

TEST_F(WritingTest, RefusalsChangeNothing) {
  const std::string longest = "\\" + std::string(255, 'L');
  Insert(Made({}, "/Folder|/PLAIN:10|/" + longest.substr(1)));
  for (const char* name : {"folder", "ab", "abc", "sparse"}) MakeLocal(name, Pattern(5));
  std::filesystem::resize_file("u/sparse", 1ULL << 32);
  std::filesystem::create_directory("u/directory");
  ASSERT_EQ(mkfifo("u/pipe", 0600), 0);
  std::vector<std::tuple<std::string, std::string, uint32_t>> rows = {
      {"missing", "\\", 244}, {"directory", "\\", 244}, {"pipe", "\\", 244}, {"sparse", "\\", 249}};
  for (const char c : std::string("\\:*?\"<>|\x01\x1F")) {
    rows.emplace_back(std::string("a") + c, "\\", 244);
    MakeLocal(std::get<0>(rows.back()), Pattern(5));
  }
  const size_t local = rows.size();  // so many are known without a look at the volume
  rows.insert(rows.end(), {{"abc", "\\none", 244},
                           {"abc", "\\PLAIN", 244},
                           {"abc", "\\PLAIN\\none", 244},
                           {"abc", "\\Folder\\\\", 244},
                           {"folder", "\\", 240},
                           {"abc", longest, 243},
                           {"abc", longest + "\\", 243}});
  for (size_t i = 0; i < rows.size(); ++i) {
    const auto& [name, folder, status] = rows[i];
    EXPECT_EQ(PutLocal(name, folder), status) << name << " to " << folder;
    EXPECT_FALSE(Wrote()) << name;
    EXPECT_EQ(Requests().size() == 1, i < local) << name;
  }
  // 259 characters together. The caller's own text loses its last one.
  for (const auto& [text, left] : {std::pair{longest + "\\", longest}, {"\\", ""}, {"\\Folder", "\\Folder"}}) {
    EXPECT_EQ(PutLocal("ab", text), 0U) << text;
    EXPECT_EQ(folderText, left);
  }
}

// Neither the size that the file had nor what it has become is copied.
TEST_F(WritingTest, AFileThatChangesMeanwhileIsNotCopied) {
  Insert(Made({}));
  for (const bool isRemoved : {true, false}) {
    MakeLocal("CHANGING", Pattern(100000));
    world.fate = [&](const LoggedDatagram& datagram) -> Fate {
      if (IsRequest(datagram, isRemoved ? Command::RFAReadData : Command::RFAWriteData)) {
        isRemoved ? (void)std::filesystem::remove("u/CHANGING") : std::filesystem::resize_file("u/CHANGING", 99999);
      }
      return {};
    };
    EXPECT_EQ(PutLocal("CHANGING"), 244U);
    EXPECT_EQ(Wrote(), !isRemoved);
    EXPECT_TRUE(List("\\").empty());
  }
}

// Whichever ends first, the device or the volume: there is room for ten clusters.
TEST_F(WritingTest, AVolumeIsFilledUpToItsEndAndToThatOfTheDevice) {
  for (const bool deviceEndsFirst : {true, false}) {
    VolumeImage image = Made(kSmall);
    const VolumeView view(image);
    for (uint32_t cluster = 2; !deviceEndsFirst && cluster + 9 < view.lastCluster; ++cluster)
      view.SetLink(cluster, 0xFFFF);
    image.SetSectorCount(deviceEndsFirst ? view.SectorOf(12) : image.SectorCount() + 1000);
    Insert(image);
    EXPECT_EQ(Put("ELEVEN", Pattern(10 * 2048 + 1)), 249U);
    EXPECT_FALSE(Wrote());
    EXPECT_EQ(Put("TEN", Pattern(10 * 2048)), 0U);
  }
}

// Nothing is rolled back and nothing goes on: what was sent is what a good network would have seen up to there. A
// device's status comes back as it is, whatever the library itself may mean by its number.
TEST_F(WritingTest, AnyFailureEndsTheOperationThere) {
  const Bytes content = Pattern(20 * 1024);
  // The old file, and what is free, lie over two sectors of the FAT. No slot is left in the folder.
  const VolumeImage image =
      Made({.sectorsPerCluster = 2, .rootEntries = 32},
           "/Sub|/Filler:240640|/Hole:8192|/Sub/Old long name.bin:16384|-/Hole" + Numbered("/Sub/F", 1, 27));
  Insert(image);
  const std::string oldPath = "\\Sub\\Old long name.bin", newPath = "\\Sub\\Another long name.bin";
  const struct {
    const char* what;
    std::function<uint32_t()> run;
    uint32_t again;    // what trying again may return, besides 0
    std::string path;  // of what is there then
  } operations[] = {{"put", [&] { return Put("Another long name.bin", content, "\\Sub"); }, 0, newPath},
                    {"overwrite", [&] { return Put("Old long name.bin", content, "\\Sub"); }, 0, oldPath},
                    {"mkdir", [&] { return MakeFolder("\\Sub\\A folder"); }, 236, {}},
                    {"delete", [&] { return Delete(oldPath); }, 244, {}},
                    {"format", [&] { return Format(); }, 0, {}},
                    {"list", [&] { return Mark(), Read("\\Sub")->status; }, 0, {}},
                    {"get", [&] { return Mark(), Read(oldPath, "d")->status; }, 0, {}}};
  // From one exchange on the network is gone, replies of status 0 bring too little, or the device refuses.
  const Bytes nothing, tooShort = Item(16, 3, Bytes(511));
  struct Fault {
    uint32_t status;
    const Bytes* body = nullptr;
  };
  const Fault faults[] = {{253}, {253, &nothing}, {253, &tooShort}, {8}, {244}, {0xFFFFFFFF}};
  for (const auto& [what, run, expectedAgain, path] : operations) {
    Volume() = image;
    ASSERT_EQ(run(), 0U) << what;
    const auto good = Requests();
    for (size_t k = 0; k < std::size(faults) * good.size(); ++k) {
      const size_t failing = k / std::size(faults);
      const Fault fault = faults[k % std::size(faults)];
      if (CommandOf(good[failing]) == static_cast<uint8_t>(Command::TransferAcknowledgement)) continue;
      const bool isRead = CommandOf(good[failing]) == static_cast<uint8_t>(Command::RFAReadData);
      if (fault.body != nullptr && !isRead) continue;
      const uint32_t status = fault.status;
      SCOPED_TRACE(what + (", exchange " + std::to_string(failing)) + ", status " + std::to_string(status));
      Volume() = image;
      world.fate = [=, number = size_t{0}, last = Datagram{}](const LoggedDatagram& datagram) mutable -> Fate {
        if (datagram.fromLibrary && std::exchange(last, datagram.bytes) != datagram.bytes) ++number;
        if (number <= failing) return {};
        if (fault.body != nullptr)
          return datagram.fromLibrary ? Fate{} : Fate{.bytes = WithBody(datagram.bytes, *fault.body)};
        if (status == 253) return {.copies = 0};
        return datagram.fromLibrary ? Fate{} : Fate{.bytes = WithStatus(datagram.bytes, status)};
      };
      ASSERT_EQ(run(), status);
      ASSERT_TRUE(std::ranges::equal(Requests(), std::span(good).first(failing + 1), {}, BodyOf, BodyOf));
      world.fate = nullptr;
      ASSERT_EQ(Read("\\")->status, 0U);
      const uint32_t again = run();
      ASSERT_TRUE(again == 0 || again == expectedAgain) << again;
      ASSERT_TRUE(path.empty() || Get(path) == content);
    }
  }
}

}  // namespace
}  // namespace media_adapter::sim

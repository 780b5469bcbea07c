// Volumes: the checks of the mount, volumes that mkfs.fat and mtools made, and volumes forged byte by byte. Each is the
// medium of device 0; device 1 has none.
#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

using VolumeTest = WritingTest;

TEST_F(VolumeTest, MountChecksComeInTheirOrder) {
  const struct {
    Boot boot;
    const char* requests;  // and the status before them
    const char* what;
  } rows[] = {
      {{}, "0 r:s0 r:root0", "4085 clusters"},
      {{.clusters = 4084}, "247 r:s0", "4084 clusters"},
      {{.clusters = 65524, .rootCluster = 3}, "0 r:s0 r:root0", "FAT16 has no root cluster"},
      {{.rootEntries = 0, .clusters = 65525, .in32Bits = true}, "0 r:s0-fat0 r:c2.0", "65525 clusters"},
      {{.rootEntries = 0, .clusters = 65525, .rootCluster = 3, .in32Bits = true}, "245 r:s0", "another root"},
      {{.sectorsPerCluster = 0}, "246 r:s0", "no sectors per cluster"},
      {{.sectorsPerCluster = 0, .signature = 0, .start = 63}, "246 r:s0 r:s63", "246 before 248"},
      {{.clusters = 4084, .signature = 0, .start = 63}, "247 r:s0 r:s63", "247 before 248"},
      {{.clusters = 65525, .rootCluster = 3, .signature = 0, .start = 63}, "245 r:s0 r:s63", "245 before 248"},
      {{.signature = 0}, "248 r:s0", "signature"},
      {{.signature = 0, .start = 63}, "248 r:s0 r:s63", "the volume's signature"},
      {{.sectorsPerCluster = 0, .start = 63, .tableSignature = 0x55AA}, "248 r:s0", "the table's before 246"},
      {{.start = 100000}, "0 r:s0 r:s100000 r:root0", "a partition far behind"},
      {{.sectorsPerCluster = 128, .reserved = 9, .fats = 2, .rootEntries = 17}, "0 r:s0 r:root0-root1", "rounded root"},
  };
  for (const auto& row : rows) EXPECT_EQ(Trace(Mount(Forge(row.boot))), row.requests) << row.what;
  VolumeImage image = Forge({.start = 63});
  WriteU32(image.At(0), boot::kPartitionStart, image.SectorCount());
  EXPECT_EQ(Mount(image), 251U) << "a partition past the device";
  image = Forge({});
  image.SetSectorCount(VolumeView(image).root + 1);
  EXPECT_EQ(Mount(image), 0U) << "the device's last sector is read";
  image.SetSectorCount(image.SectorCount() - 1);
  EXPECT_EQ(Mount(image), 251U);
}

// Layouts that leave no room for a FAT or for clusters: they mount, and no cluster of theirs is read or written.
TEST_F(VolumeTest, AVolumeWithoutClustersHoldsNothing) {
  const struct {
    const char* what;
    size_t offset;  // in the boot sector
    uint16_t value;
    uint32_t listed;  // status: FAT32 has its root in a cluster
  } rows[] = {{"a FAT of length 0", boot::kFatSize16, 0, 0},
              {"no FAT, and 16 root entries", boot::kFats, 0x1000, 0},
              {"a FAT in the boot sector", boot::kReserved, 0, 0},
              {"a size below what comes before the clusters", boot::kTotal16, 3, 251}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    VolumeImage image = Forge({.clusters = 10000});
    WriteU16(image.At(0), row.offset, row.value);
    WriteU32(image.At(0), boot::kFatSize32, 0);
    EXPECT_EQ(Mount(image), row.listed);
    EXPECT_EQ(Put("FILE", Pattern(10)), row.listed == 0 ? 249U : 251U);
    EXPECT_FALSE(Wrote());
    EXPECT_EQ(Format(), 251U);
    EXPECT_FALSE(Wrote());
    EXPECT_EQ(Put("EMPTY", {}), 251U) << "though it needs no cluster";
    EXPECT_FALSE(Wrote());
  }
}

TEST_F(VolumeTest, AVolumeIsMountedOnceUntilAnotherDeviceIsUsed) {
  AddDevice(Forge({.start = 5}));
  Search();
  const auto mounts = [&](uint32_t device) {
    Mark();
    const uint32_t status = Read("\\", {}, nullptr, device)->status;
    const auto isBoot = [](const LoggedDatagram& sent) { return ReadU32(sent.bytes, wire::kHeaderSize + 4) == 0; };
    return std::pair(status, std::ranges::count_if(Sent(Command::RFAReadData), isBoot));
  };
  const std::pair<uint32_t, std::ptrdiff_t> mounted{0, 1}, known{0, 0}, failed{248, 1};
  Insert(Forge({}));
  EXPECT_EQ(mounts(0), known);
  EXPECT_EQ(API_RFADisconnect(0, kPassword, 0)->status, 0U);
  EXPECT_EQ(mounts(0), known);
  EXPECT_EQ(mounts(2), mounted);
  EXPECT_EQ(mounts(0), mounted);
  EXPECT_EQ(mounts(1), failed);
  EXPECT_EQ(mounts(1), failed);
  EXPECT_EQ(mounts(0), mounted);
}

TEST_F(VolumeTest, OtherSectorSizesAreRefused) {
  device_->Faults().reportedSectorSize = 1024;
  Mark();
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 250U);
  EXPECT_STREQ(Read("\\")->message, "Sector size is not equal to 512");
  EXPECT_TRUE(Sent(Command::RFAReadData).empty());
  // What a reply does not tell is not taken from the one before.
  device_->Faults().reportedSectorSize = 512;
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 0U);
  ChangeReplies(Command::RFAConnect, 1, [](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, {}); });
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 250U);
}

// ---- Volumes of mkfs.fat and mtools

std::string LongName(size_t length) {
  std::string name = "Long name " + std::to_string(length) + " ";
  while (name.size() < length) name += static_cast<char>('a' + name.size() % 26);
  return name;
}

// A file in pieces, a folder with gaps that deleted names left and with the longest names, and every mark for the end
// of a chain that other systems write.
TEST_F(VolumeTest, WhatOtherSystemsWroteIsListedAndReadWhole) {
  for (const VolumeShape& shape : {VolumeShape{16, 2, 0, 2, 63}, VolumeShape{16, 64, 0, 1, 1}, VolumeShape{32, 1, 0, 2},
                                   VolumeShape{32, 8, 0, 1, 2048}}) {
    SCOPED_TRACE(std::to_string(shape.fatBits) + "/" + std::to_string(shape.sectorsPerCluster));
    const size_t cluster = shape.sectorsPerCluster * 512;
    const Bytes second = Pattern(2 * cluster, 2), third = Pattern(9 * cluster + 1, 3);
    const std::string size = ":" + std::to_string(second.size()) + ":2", deep = "/Folder/inner/";
    std::string items = "/FIRST:" + std::to_string(3 * cluster) + "|/SECOND" + size +
                        "|-/FIRST|/Third, in pieces.bin:" + std::to_string(third.size()) + ":3|/Folder|/Folder/inner";
    // Room that deleted names leave behind: mtools does not grow a directory by more than one cluster for one name.
    items += Numbered(deep + "FILLER.", 0, 499) + "|-" + deep + "FILLER.*";
    // Six slots a name: runs cross sectors and clusters. The longest names need 21 slots.
    Strings names;
    for (size_t i = 0; i < 40; ++i) names.push_back(LongName(50) + std::to_string(100 + i));
    for (size_t length = 248; length <= 255; ++length) names.push_back(LongName(length));
    for (const auto& name : names) items += "|" + deep + name + size;
    Insert(Made(shape, items));

    EXPECT_EQ(List("\\"), (Strings{"SECOND", "Third, in pieces.bin", "Folder"}));
    auto expected = names;
    expected.insert(expected.begin(), {".", ".."});
    for (const char* path : {"\\Folder\\inner", "\\FOLDER\\INNER\\", "ignored\\folder\\inner"}) {
      EXPECT_EQ(List(path), expected);
    }
    EXPECT_EQ(Get("\\SECOND"), second);
    EXPECT_EQ(Get("\\third, IN pieces.bin"), third);
    EXPECT_EQ(Get("\\Folder\\inner\\" + names[20]), second);
    EXPECT_EQ(Read("\\Folder\\none")->status, 244U);

    const VolumeView view = View();
    const uint32_t mask = view.is32 ? 0x0FFFFFFF : 0xFFFF, inner = Read("\\Folder")->entries[2].firstCluster;
    uint32_t last = inner;
    while ((view.Link(last) & mask) <= view.lastCluster) last = view.Link(last) & mask;
    if (last != inner) view.SetLink(inner, 0x50000000 | view.Link(inner));  // the upper four bits say nothing
    for (const uint32_t mark : {0xF7U, 0xF8U, 0xFEU, 0xFFU}) {
      view.SetLink(last, 0xAFFFFF00 | mark);
      EXPECT_EQ(List("\\Folder\\inner"), expected) << mark;
    }
  }
}

// ---- Directories by hand

Bytes Short(const std::string& name11, uint8_t attributes = slot::kFile, uint8_t caseFlags = 0, uint16_t cluster = 0) {
  Bytes bytes = ShortSlot(name11, attributes, 0x77770000U + cluster, cluster == 0 ? 0 : 100);  // FAT16: 16 bits count
  bytes[slot::kCaseFlags] = caseFlags;
  return bytes;
}

class ForgedDirectoryTest : public WritingTest {
 protected:
  // Mounts a FAT16 volume whose root directory is these slots. Files of cluster 0 are empty: one that is found is
  // created in the local folder, and that is all.
  void MountRoot(const std::vector<Bytes>& slots) {
    VolumeImage image = Forge({.rootEntries = 512});
    const auto root = VolumeView(image).Slots();
    ASSERT_LE(slots.size(), root.size());
    for (size_t i = 0; i < slots.size(); ++i) std::ranges::copy(slots[i], root[i].begin());
    Insert(image);
  }
};

TEST_F(ForgedDirectoryTest, SlotsAreReadAsTheyStand) {
  const std::string longest(260, 'y');
  std::vector<Bytes> slots = {Short("README  TXT"), Short("README2 TXT", 0x20, 0x08), Short("README3 TXT", 0x20, 0x10),
                              Short("README4 TXT", 0x20, 0x18), Short("FOLDER     ", slot::kFolder, 0, 2),
                              Short("\x05XY     Z  "), Short("A B     C D"), Short("HIDDEN     ", 0x06),
                              Short("LABEL      ", 0x08), Short("NOLABEL    ", 0x28),
                              Short(std::string("ZE\0O    TXT", 11)),  // ends there
                              // Well-formed: the checksum is not looked at.
                              LongSlot(0x42, "d tail"), LongSlot(1, "head, middle,"), Short("HEADMI~1   "),
                              LongSlot(0x41, "thirteen char"), Short("THIRTE~1   "),
                              // Runs that something interrupts: the short name counts.
                              LongSlot(0x41, "deleted"),
                              Short("\xE5"
                                    "ELETED    "),
                              Short("AFTERDEL   "), LongSlot(0x41, "labelled"), Short("LABEL      ", 0x08),
                              Short("AFTERLAB   "), LongSlot(0x41, "ended"), Bytes(slot::kLength), Short("AFTERNUL   "),
                              LongSlot(0x55, "x"), Short("ORDINAL21  "), LongSlot(0x42, "lost"), LongSlot(21, "lost"),
                              LongSlot(1, "kept"), Short("KEPT       "), LongSlot(0x40, "x"), Short("ORDINAL0   "),
                              // A character's low byte counts, and 0xFF is a space.
                              LongSlot(0x41, "a\xFFz"), Short("SPACE      ")};
  for (uint8_t ordinal = 20; ordinal >= 1; --ordinal) slots.push_back(LongSlot(ordinal, longest.substr(0, 13)));
  slots.push_back(Short("LONGEST    "));
  slots.push_back(Short("LAST       "));
  MountRoot(slots);
  const Strings expected = Split(
      "README.TXT|readme2.TXT|README3.txt|readme4.txt|FOLDER|\xE5XY.Z|AB.CD|HIDDEN|NOLABEL|ZE|"
      "head, middle,d tail|thirteen char|AFTERDEL|AFTERLAB|AFTERNUL|ORDINAL2.1|kept|ORDINAL0|a z|" +
          longest.substr(0, 255) + "|LAST",
      '|');
  EXPECT_EQ(List("\\"), expected);
  const auto* result = Read("\\");
  EXPECT_EQ(result->entries[19].attributes, 0x20) << "the longest name leaves its row's next field alone";
  EXPECT_EQ(result->entries[4].firstCluster, 2U);

  for (const char* name : {"README.TXT", "readme.txt", "Readme2.Txt", "\xE5XY.Z", "ab.cd", "HEAD, middle,D TAIL",
                           "kept", "head, middle,d tail  ", "LAST", "AFTERNUL", "hidden", "ze"}) {
    EXPECT_EQ(Read(std::string("\\") + name)->status, 0U) << name;
  }
  for (const char* name :
       {"HEADMI~1", "LABEL", "deleted", "\x05XY.Z", "README", "README.TX", "\xC5XY.Z", "AB.C D", "ended"}) {
    EXPECT_EQ(Read(std::string("\\") + name)->status, 244U) << name;
  }
}

TEST_F(ForgedDirectoryTest, AListingEndsAt511Entries) {
  std::vector<Bytes> files;
  for (int i = 100; i < 612; ++i) files.push_back(Short("FILE" + std::to_string(i) + "    "));
  files[511][0] = slot::kDeleted;
  MountRoot(files);
  EXPECT_EQ(List("\\").size(), 511U);
  const auto slots = View().Slots();
  slots[511][0] = 'F';
  const auto* result = Read("\\");
  EXPECT_EQ(result->status, 242U);
  EXPECT_EQ(result->entryCount, 511U) << "of the listing before";
  EXPECT_EQ(result->entries[510].number, 511U);
  EXPECT_EQ(result->entries[511].number, 0U);
  EXPECT_EQ(Read("\\FILE611")->status, 0U) << "a look-up has no such limit";
  for (const Slot slot : std::span(slots).subspan(2)) slot[0] = slot::kDeleted;
  EXPECT_EQ(Read("\\")->entries[1].number, 2U);
  EXPECT_EQ(result->entries[2].number, 0U) << "behind the last row";
}

TEST_F(ForgedDirectoryTest, WhatIsNoDirectoryHoldsNothingAndBrokenAndLoopingChainsEnd) {
  MountRoot({Short("FILE       ", 0x20, 0, 5), Short("EMPTY      "), Short("DIR        ", slot::kFolder, 0, 10)});
  EXPECT_EQ(Read("\\FILE\\x")->status, 244U);
  EXPECT_EQ(Read("\\EMPTY\\FILE")->status, 244U) << "its cluster 0 is not the root";
  EXPECT_EQ(Read("\\DIR\\x")->status, 244U);
  const VolumeView view = View();
  const Slot inside = view.Slots(10)[0];
  std::ranges::copy(Short("INSIDE     "), inside.begin());
  for (const uint32_t broken : {0, 1}) {
    view.SetLink(10, broken);
    EXPECT_EQ(List("\\DIR"), Strings{"INSIDE"}) << broken;
  }
  view.SetLink(10, 11);
  view.SetLink(11, 0xF000);
  EXPECT_EQ(Read("\\DIR")->status, 251U) << "past the device";
  EXPECT_EQ(Read("\\DIR\\none")->status, 251U);
  view.SetLink(11, 10);
  EXPECT_EQ(Read("\\DIR")->status, 242U) << "a loop brings the same entry again and again";
  Mark();
  EXPECT_EQ(Read("\\DIR\\none")->status, 244U);
  EXPECT_LE(Sent(Command::RFAReadData).size(), 2 * 4096U + 10) << "65536 slots, and one FAT sector for each cluster";
  std::ranges::fill(inside, uint8_t{0});
  EXPECT_TRUE(List("\\DIR").empty());
  EXPECT_EQ(Read("\\DIR")->entries[0].number, 0U) << "no row of the listing before";
}

}  // namespace
}  // namespace media_adapter::sim

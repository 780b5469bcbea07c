// Volumes: the checks of the mount, volumes that mkfs.fat and mtools made, and directories forged slot by slot.
#include <gtest/gtest.h>

#include "tests/support/library_fixture.h"

namespace media_adapter::sim {
namespace {

// The fields of a boot sector that a mount looks at.
struct Boot {
  uint8_t sectorsPerCluster = 1;
  uint16_t reserved = 1;
  uint8_t fats = 1;
  uint16_t rootEntries = 16;
  uint32_t clusters = 4085;
  uint32_t rootCluster = 2;
  uint16_t signature = 0xAA55;
  bool in32Bits = false;  // the wide fields for sizes
  uint32_t start = 0;     // of the partition
  uint16_t tableSignature = 0xAA55;

  uint32_t FatSectors() const { return clusters / 128 + 1; }
  uint32_t RootSector() const { return start + reserved + fats * FatSectors(); }
  uint32_t FirstDataSector() const { return RootSector() + (rootEntries * 32U + 511) / 512; }
  uint32_t End() const { return FirstDataSector() + clusters * std::max<uint32_t>(sectorsPerCluster, 1); }
};

VolumeImage Forge(const Boot& boot) {
  VolumeImage image(boot.End());
  auto& sector = image.At(boot.start);
  const uint32_t total = boot.End() - boot.start;
  const bool isWide = boot.in32Bits || total > 0xFFFF;
  sector[13] = boot.sectorsPerCluster;
  WriteU16(sector, 14, boot.reserved);
  sector[16] = boot.fats;
  WriteU16(sector, 17, boot.rootEntries);
  WriteU16(sector, 19, isWide ? 0 : static_cast<uint16_t>(total));
  WriteU16(sector, 22, boot.in32Bits ? 0 : static_cast<uint16_t>(boot.FatSectors()));
  WriteU32(sector, 32, isWide ? total : 7);
  WriteU32(sector, 36, boot.in32Bits ? boot.FatSectors() : 7);
  WriteU32(sector, 44, boot.rootCluster);
  WriteU16(sector, 510, boot.signature);
  if (boot.start != 0) {
    WriteU32(image.At(0), 454, boot.start);
    WriteU16(image.At(0), 510, boot.tableSignature);
  }
  return image;
}

class VolumeTest : public LibraryTest {
 protected:
  // The sectors that the library read since the mark.
  std::vector<uint32_t> SectorsRead() const {
    std::vector<uint32_t> sectors;
    for (const auto& read : Sent(Command::RFAReadData)) sectors.push_back(ReadU32(read.bytes, 48));
    return sectors;
  }
  // Puts another medium into the device; the library mounts it.
  uint32_t Mount(const VolumeImage& image) {
    if (device_ == nullptr) {
      device_ = &AddDevice(image);
      AddDevice(VolumeImage(16));
      Search();
    }
    static_cast<VolumeImage&>(device_->Disk()) = image;
    EXPECT_EQ(Read("\\", {}, nullptr, 1)->status, 248U);  // forgets what was mounted
    Mark();
    return Read("\\")->status;
  }
  simulator::DeviceModel* device_ = nullptr;
};

TEST_F(VolumeTest, MountChecksComeInTheirOrder) {
  const struct {
    Boot boot;
    uint32_t status;
    const char* what;
  } rows[] = {
      {{}, 0, "4085 clusters"},
      {{.clusters = 4084}, 247, "4084 clusters"},
      {{.clusters = 65524, .rootCluster = 3}, 0, "FAT16 has no root cluster"},
      {{.rootEntries = 0, .clusters = 65525, .in32Bits = true}, 0, "65525 clusters"},
      {{.rootEntries = 0, .clusters = 65525, .rootCluster = 3, .in32Bits = true}, 245, "another root"},
      {{.sectorsPerCluster = 0}, 246, "no sectors per cluster"},
      {{.sectorsPerCluster = 0, .signature = 0, .start = 63}, 246, "246 before 248"},
      {{.clusters = 4084, .signature = 0, .start = 63}, 247, "247 before 248"},
      {{.clusters = 65525, .rootCluster = 3, .signature = 0, .start = 63}, 245, "245 before 248"},
      {{.signature = 0}, 248, "signature"},
      {{.signature = 0, .start = 63}, 248, "the volume's signature"},
      {{.sectorsPerCluster = 0, .start = 63, .tableSignature = 0x55AA}, 248, "the table's signature before 246"},
      {{.start = 100000}, 0, "a partition far behind"},
      {{.sectorsPerCluster = 128, .reserved = 9, .fats = 2, .rootEntries = 17}, 0, "rounded root"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Mount(Forge(row.boot)), row.status) << row.what;
    auto expected = std::vector<uint32_t>{0};
    const bool isTableRead = row.boot.start != 0 && row.boot.tableSignature == 0xAA55;
    if (isTableRead) expected.push_back(row.boot.start);
    auto sectors = SectorsRead();
    if (row.status == 0) {
      const uint32_t root = row.boot.rootEntries == 0 ? row.boot.reserved : row.boot.RootSector();
      const uint32_t listed = row.boot.rootEntries == 0 ? 2 : row.boot.FirstDataSector() - row.boot.RootSector();
      ASSERT_EQ(sectors.size(), expected.size() + listed) << row.what;
      EXPECT_EQ(sectors[expected.size()], root)
          << row.what << ": FAT32 asks the FAT first, FAT16 has its own root area";
      sectors.resize(expected.size());
    }
    EXPECT_EQ(sectors, expected) << row.what;
  }
  VolumeImage image = Forge({});
  WriteU32(image.At(0), 454, image.SectorCount());
  EXPECT_EQ(Mount(image), 251U) << "a partition past the device";
}

// Layouts that leave no room for a FAT or for clusters: they mount, and no cluster of theirs is read or written.
TEST_F(VolumeTest, AVolumeWithoutClustersHoldsNothing) {
  const struct {
    const char* what;
    size_t offset;  // in the boot sector
    uint16_t value;
    uint32_t listed;  // status: FAT32 has its root in a cluster
  } rows[] = {{"a FAT of length 0", 22, 0, 0},
              {"no FAT", 16, 0x1000, 0},  // and 16 root entries
              {"a FAT in the boot sector", 14, 0, 0},
              {"a size below what comes before the clusters", 19, 3, 251}};
  const std::string file = Downloads() / "FILE";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    VolumeImage image = Forge({.clusters = 10000});
    WriteU16(image.At(0), row.offset, row.value);
    WriteWholeFile(file, Pattern(10));
    WriteU32(image.At(0), 36, 0);
    EXPECT_EQ(Mount(image), row.listed);
    Mark();
    std::string root = "\\";
    EXPECT_EQ(API_RFAWriteData(file.c_str(), root.data(), 0, kPassword, 0)->status, row.listed == 0 ? 249U : 251U);
    EXPECT_EQ(API_RFAFormat(0, kPassword, 0)->status, 251U);
    WriteWholeFile(file, {});  // needs no cluster
    root = "\\";
    EXPECT_EQ(API_RFAWriteData(file.c_str(), root.data(), 0, kPassword, 0)->status, 251U);
    EXPECT_TRUE(Sent(Command::RFAWriteData).empty());
  }
}

TEST_F(VolumeTest, AVolumeIsMountedOnceUntilAnotherDeviceIsUsed) {
  AddDevice(Forge({}));
  AddDevice(Forge({.start = 5}));
  AddDevice(VolumeImage(16));
  Search();
  const auto mounts = [&](uint32_t device) {
    Mark();
    const uint32_t status = Read("\\", {}, nullptr, device)->status;
    return std::pair(status, std::ranges::count(SectorsRead(), 0U));
  };
  const std::pair<uint32_t, std::ptrdiff_t> mounted{0, 1}, known{0, 0}, failed{248, 1};
  EXPECT_EQ(mounts(0), mounted);
  EXPECT_EQ(mounts(0), known);
  EXPECT_EQ(API_RFADisconnect(0, kPassword, 0)->status, 0U);
  EXPECT_EQ(mounts(0), known);
  EXPECT_EQ(mounts(1), mounted);
  EXPECT_EQ(mounts(0), mounted);
  EXPECT_EQ(mounts(2), failed);
  EXPECT_EQ(mounts(2), failed);
  EXPECT_EQ(mounts(0), mounted);
}

TEST_F(VolumeTest, OtherSectorSizesAreRefused) {
  auto& device = AddDevice(Forge({}), "a", {.reportedSectorSize = 1024});
  Search();
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 250U);
  EXPECT_STREQ(Read("\\")->message, "Sector size is not equal to 512");
  EXPECT_TRUE(Sent(Command::RFAReadData).empty());
  // What a reply does not tell is not taken from the one before.
  device.Faults().reportedSectorSize = 512;
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 0U);
  ChangeReplies(Command::RFAConnect, 1, [](Datagram& bytes, Endpoint&) { bytes = WithBody(bytes, {}); });
  EXPECT_EQ(API_RFAConnect(0, kPassword, 0)->status, 250U);
}

TEST_F(VolumeTest, SectorsPastTheDeviceAreRefused) {
  VolumeImage image = Forge({});
  const Boot boot;
  image.SetSectorCount(boot.RootSector() + 1);
  EXPECT_EQ(Mount(image), 0U) << "the device's last sector is read";
  image.SetSectorCount(boot.RootSector());
  EXPECT_EQ(Mount(image), 251U);
}

// ---- Volumes of mkfs.fat and mtools

class MadeVolumeTest : public VolumeTest, public ::testing::WithParamInterface<VolumeShape> {};

std::string LongName(size_t length) {
  std::string name = "Long name " + std::to_string(length) + " ";
  while (name.size() < length) name += static_cast<char>('a' + name.size() % 26);
  return name;
}

TEST_P(MadeVolumeTest, IsListedAndReadWhole) {
  const VolumeShape shape = GetParam();
  const size_t cluster = shape.sectorsPerCluster * 512;
  const Bytes first = Pattern(3 * cluster, 1), second = Pattern(2 * cluster, 2), third = Pattern(9 * cluster + 1, 3);
  VolumeBuilder builder(shape);
  builder.AddFile("/FIRST", first);
  builder.AddFile("/SECOND", second);
  builder.Delete("/FIRST");
  builder.AddFile("/Third, in pieces.bin", third);
  builder.AddFolder("/Folder");
  builder.AddFolder("/Folder/inner");
  // Room that deleted names leave behind: mtools does not grow a directory by more than one cluster for one name.
  std::vector<std::string> names;
  for (size_t i = 0; i < 500; ++i) names.push_back("FILLER." + std::to_string(i));
  builder.AddFiles("/Folder/inner", names);
  builder.Delete("/Folder/inner/FILLER.*");
  // Six slots a name: runs cross sectors and clusters. The longest names need 21 slots.
  names.clear();
  for (size_t i = 0; i < 40; ++i) names.push_back(LongName(50) + std::to_string(100 + i));
  for (size_t length = 248; length <= 255; ++length) names.push_back(LongName(length));
  builder.AddFiles("/Folder/inner", names, second);
  VolumeImage image = builder.Build();

  ASSERT_EQ(Mount(image), 0U);
  EXPECT_EQ(List("\\"), (std::vector<std::string>{"SECOND", "Third, in pieces.bin", "Folder"}));
  auto expected = names;
  expected.insert(expected.begin(), {".", ".."});
  for (const char* path : {"\\Folder\\inner", "\\FOLDER\\INNER\\", "ignored\\folder\\inner"}) {
    EXPECT_EQ(List(path), expected);
  }
  EXPECT_EQ(Read("\\SECOND")->status, 0U);
  EXPECT_EQ(Downloaded("SECOND"), second);
  EXPECT_EQ(Read("\\third, IN pieces.bin")->status, 0U);
  EXPECT_EQ(Downloaded("third, IN pieces.bin"), third);
  const std::string deep = names[20];
  EXPECT_EQ(Read("\\Folder\\inner\\" + deep)->status, 0U);
  EXPECT_EQ(Downloaded(deep), second);
  EXPECT_EQ(Read("\\Folder\\none")->status, 244U);

  // Every mark for the end of a chain that other systems write ends one here, at the directory's last cluster.
  const auto* listing = Read("\\Folder");
  const uint32_t inner = listing->entries[2].firstCluster;
  const bool is32 = shape.fatBits == 32;
  const uint32_t fat = shape.partitionStart + ReadU16(image.At(shape.partitionStart), 14);
  const auto entry = [&](uint32_t number) {
    return std::pair(fat + number / (is32 ? 128 : 256), number % (is32 ? 128 : 256) * (is32 ? 4 : 2));
  };
  const auto next = [&](uint32_t number) {
    const auto [sector, offset] = entry(number);
    return is32 ? ReadU32(image.At(sector), offset) : ReadU16(image.At(sector), offset);
  };
  uint32_t last = inner;
  while (next(last) < (is32 ? 0x0FFFFFF0 : 0xFFF0)) last = next(last);
  if (is32 && last != inner) {  // the upper four bits say nothing
    const auto [sector, offset] = entry(inner);
    WriteU32(static_cast<VolumeImage&>(device_->Disk()).At(sector), offset, 0x50000000 | next(inner));
  }
  for (const uint32_t mark : {0xF7U, 0xF8U, 0xFEU, 0xFFU}) {
    const auto [sector, offset] = entry(last);
    auto& bytes = static_cast<VolumeImage&>(device_->Disk()).At(sector);
    if (is32) {
      WriteU32(bytes, offset, 0xAFFFFF00 | mark);
    } else {
      WriteU16(bytes, offset, static_cast<uint16_t>(0xFF00 | mark));
    }
    EXPECT_EQ(List("\\Folder\\inner"), expected) << mark;
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, MadeVolumeTest,
                         ::testing::Values(VolumeShape{16, 1}, VolumeShape{16, 2, 0, 2, 63}, VolumeShape{16, 8},
                                           VolumeShape{16, 64, 0, 1, 1}, VolumeShape{32, 1, 0, 2},
                                           VolumeShape{32, 2, 0, 1, 2048}, VolumeShape{32, 8, 0, 1, 63},
                                           VolumeShape{32, 64}),
                         [](const auto& row) {
                           const VolumeShape& shape = row.param;
                           return "Fat" + std::to_string(shape.fatBits) + "Cluster" +
                                  std::to_string(shape.sectorsPerCluster) +
                                  (shape.partitionStart != 0 ? "Partition" : "");
                         });

TEST_F(VolumeTest, AListingHasEveryField) {
  VolumeBuilder builder({});
  builder.AddFile("/A file.txt", Pattern(1234));
  builder.SetAttributes("/A file.txt", {"+r", "+h", "+s"});
  builder.AddFolder("/Folder");
  ASSERT_EQ(Mount(builder.Build()), 0U);
  const auto* result = Read("\\");
  ASSERT_EQ(result->entryCount, 2U);
  const ListingEntry& file = result->entries[0];
  EXPECT_EQ(file.number, 1U);
  EXPECT_EQ(file.attributes, 0x27);
  EXPECT_EQ(file.size, 1234U);
  EXPECT_EQ(file.firstCluster, 2U);
  EXPECT_EQ((std::vector<int>{file.year, file.month, file.day, file.hour, file.minute, file.second}),
            (std::vector<int>{2017, 7, 14, 2, 40, 0}));
  EXPECT_EQ(result->entries[1].number, 2U);
  EXPECT_EQ(result->entries[1].attributes, 0x10);
  EXPECT_EQ(result->entries[1].size, 0U);
  EXPECT_EQ(result->entries[2].number, 0U);
}

TEST_F(VolumeTest, AListingEndsAt511Entries) {
  std::vector<std::string> names;
  names.reserve(510);
  for (int i = 0; i < 509; ++i) names.push_back("FILE" + std::to_string(i));
  VolumeBuilder builder({.sectorsPerCluster = 2});
  builder.AddFolder("/FULL");
  builder.AddFiles("/FULL", names);
  builder.AddFolder("/OVER");
  names.push_back("FILE509");
  builder.AddFiles("/OVER", names);
  ASSERT_EQ(Mount(builder.Build()), 0U);
  EXPECT_EQ(List("\\FULL").size(), 511U);
  const auto* result = Read("\\OVER");
  EXPECT_EQ(result->status, 242U);
  EXPECT_EQ(result->entryCount, 511U) << "of the listing before";
  EXPECT_EQ(result->entries[510].number, 511U);
  EXPECT_EQ(result->entries[511].number, 0U);
  EXPECT_EQ(Read("\\OVER\\FILE509")->status, 0U) << "a look-up has no such limit";
}

// ---- Directories by hand

using Slot = std::array<uint8_t, 32>;

Slot Short(const std::string& name11, uint8_t attributes = 0x20, uint8_t caseFlags = 0, uint16_t cluster = 0) {
  Slot slot{};
  std::ranges::copy(name11, slot.begin());
  slot[11] = attributes;
  slot[12] = caseFlags;
  WriteU16(slot, 20, 0x7777);  // means nothing on FAT16
  WriteU16(slot, 26, cluster);
  WriteU32(slot, 28, cluster == 0 ? 0 : 100);
  return slot;
}

// 13 characters at most; a shorter text gets its terminator and padding.
Slot Long(uint8_t ordinal, const std::string& part) {
  static constexpr std::array<uint8_t, 13> kPlaces = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};
  Slot slot{};
  slot[0] = ordinal;
  slot[11] = 0x0F;
  for (size_t i = 0; i < kPlaces.size(); ++i) {
    const uint16_t padding = i == part.size() ? 0 : 0xFFFF;
    WriteU16(slot, kPlaces[i], i < part.size() ? static_cast<uint8_t>(part[i]) : padding);
  }
  return slot;
}

class ForgedDirectoryTest : public VolumeTest {
 protected:
  // Mounts a FAT16 volume whose root directory is these slots.
  void MountRoot(const std::vector<Slot>& slots) {
    const Boot boot{.rootEntries = 64};
    VolumeImage image = Forge(boot);
    for (size_t i = 0; i < slots.size(); ++i) {
      auto& sector = image.At(boot.RootSector() + static_cast<uint32_t>(i / 16));
      std::ranges::copy(slots[i], sector.begin() + static_cast<std::ptrdiff_t>(i % 16 * 32));
    }
    ASSERT_EQ(Mount(image), 0U);
  }
  // Files here are empty: one that is found is created in the local folder, and that is all.
  uint32_t Find(const std::string& name) { return Read("\\" + name)->status; }
};

TEST_F(ForgedDirectoryTest, SlotsAreReadAsTheyStand) {
  const std::string longest(260, 'y');
  std::vector<Slot> slots = {
      Short("README  TXT"),
      Short("README2 TXT", 0x20, 0x08),
      Short("README3 TXT", 0x20, 0x10),
      Short("README4 TXT", 0x20, 0x18),
      Short("FOLDER     ", 0x10, 0, 2),
      Short("\x05XY     Z  "),
      Short("A B     C D"),
      Short("HIDDEN     ", 0x06),
      Short("LABEL      ", 0x08),
      Short("NOLABEL    ", 0x28),
      Short(std::string("ZE\0O    TXT", 11)),  // ends there
      // Well-formed: the checksum is not looked at.
      Long(0x42, "d tail"),
      Long(1, "head, middle,"),
      Short("HEADMI~1   "),
      Long(0x41, "thirteen char"),
      Short("THIRTE~1   "),
      // Runs that something interrupts: the short name counts.
      Long(0x41, "deleted"),
      Short("\xE5"
            "ELETED    "),
      Short("AFTERDEL   "),
      Long(0x41, "labelled"),
      Short("LABEL      ", 0x08),
      Short("AFTERLAB   "),
      Long(0x41, "ended"),
      Slot{},
      Short("AFTERNUL   "),
      Long(0x55, "x"),
      Short("ORDINAL21  "),
      Long(0x42, "lost"),
      Long(21, "lost"),
      Long(1, "kept"),
      Short("KEPT       "),
      Long(0x40, "x"),
      Short("ORDINAL0   "),
      // A character's low byte counts, and 0xFF is a space.
      Long(0x41, "a\xFFz"),
      Short("SPACE      "),
  };
  for (uint8_t ordinal = 20; ordinal >= 1; --ordinal) slots.push_back(Long(ordinal, longest.substr(0, 13)));
  slots.push_back(Short("LONGEST    "));
  slots.push_back(Short("LAST       "));
  ASSERT_LE(slots.size(), 64U);
  slots.back()[0] = 'L';
  MountRoot(slots);
  const std::vector<std::string> expected = {"README.TXT",
                                             "readme2.TXT",
                                             "README3.txt",
                                             "readme4.txt",
                                             "FOLDER",
                                             "\xE5XY.Z",
                                             "AB.CD",
                                             "HIDDEN",
                                             "NOLABEL",
                                             "ZE",
                                             "head, middle,d tail",
                                             "thirteen char",
                                             "AFTERDEL",
                                             "AFTERLAB",
                                             "AFTERNUL",
                                             "ORDINAL2.1",
                                             "kept",
                                             "ORDINAL0",
                                             "a z",
                                             longest.substr(0, 255),
                                             "LAST"};
  EXPECT_EQ(List("\\"), expected);
  const auto* result = Read("\\");
  EXPECT_EQ(result->entries[19].attributes, 0x20) << "the longest name leaves its row's next field alone";
  EXPECT_EQ(result->entries[4].firstCluster, 2U);

  for (const char* name : {"README.TXT", "readme.txt", "Readme2.Txt", "\xE5XY.Z", "ab.cd", "HEAD, middle,D TAIL",
                           "kept", "head, middle,d tail  ", "LAST", "AFTERNUL", "hidden", "ze"}) {
    EXPECT_EQ(Find(name), 0U) << name;
  }
  for (const char* name :
       {"HEADMI~1", "LABEL", "deleted", "\x05XY.Z", "README", "README.TX", "\xC5XY.Z", "AB.C D", "ended"}) {
    EXPECT_EQ(Find(name), 244U) << name;
  }
}

TEST_F(ForgedDirectoryTest, AFileInTheMiddleOfAPathIsNoDirectory) {
  MountRoot({Short("FILE       ", 0x20, 0, 5), Short("EMPTY      "), Short("DIR        ", 0x10, 0, 6)});
  EXPECT_EQ(Read("\\FILE\\x")->status, 244U);
  EXPECT_EQ(Read("\\EMPTY\\FILE")->status, 244U) << "its cluster 0 is not the root";
  EXPECT_EQ(Read("\\DIR\\x")->status, 244U);
  EXPECT_TRUE(List("\\DIR").empty());
}

TEST_F(ForgedDirectoryTest, BrokenAndLoopingChainsEnd) {
  MountRoot({Short("DIR        ", 0x10, 0, 10)});
  auto& image = static_cast<VolumeImage&>(device_->Disk());
  const Boot boot{.rootEntries = 64};
  const auto link = [&](uint16_t from, uint16_t to) { WriteU16(image.At(1), from * 2U, to); };
  std::ranges::copy(Short("INSIDE     "), image.At(boot.FirstDataSector() + 8).begin());
  for (const uint16_t broken : {uint16_t{0}, uint16_t{1}}) {
    link(10, broken);
    EXPECT_EQ(List("\\DIR"), std::vector<std::string>{"INSIDE"}) << broken;
  }
  link(10, 11);
  link(11, 0xF000);
  EXPECT_EQ(Read("\\DIR")->status, 251U) << "past the device";
  EXPECT_EQ(Read("\\DIR\\none")->status, 251U);
  link(11, 10);
  EXPECT_EQ(Read("\\DIR")->status, 242U) << "a loop brings the same entry again and again";
  Mark();
  EXPECT_EQ(Read("\\DIR\\none")->status, 244U);
  EXPECT_LE(SectorsRead().size(), 2 * 4096U + 10) << "65536 slots, and at most one FAT sector for each cluster";
  image.At(boot.FirstDataSector() + 8).fill(0);
  EXPECT_TRUE(List("\\DIR").empty());
}

}  // namespace
}  // namespace media_adapter::sim

// Names on the volume and what becomes of their entries: short names and aliases, long names, folders, deleting,
// formatting, and volumes that somebody broke. A device holds a volume of mkfs.fat and mtools, which some tests then
// damage byte by byte.
#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

constexpr VolumeShape kSmall{.sectorsPerCluster = 4, .rootEntries = 32};

TEST_F(WritingTest, NamesAreStoredShortOrWithAnAlias) {
  // A name, and of its entry: the 11 characters, the case flags, the number of slots.
  const std::string rows =
      "README.TXT>README  TXT 0 1|readme.txt>README  TXT 24 1|README.txt>README  TXT 16 1|readme>README      8 1|"
      "README.Txt>README~1TXT 0 2|ReadMe.txt>README~1TXT 0 2|12345678.123>12345678123 0 1|123456789>123456~1    0 2|"
      "a.html>A~1     HTM 0 2|a b>AB~1        0 2|a+.t=>A_~1    T_  0 2|[,;].a>____~1  A   0 2|..a>_~1     A   0 2|"
      "x.tar.gz>X_TAR~1 GZ  0 2|.profile>~1      PRO 0 2|My Document.html>MYDOCU~1HTM 0 3|"
      "\345bc.txt>\005BC     TXT 24 1|\345 b>\005B~1        0 2|thirteen.char>THIRTE~1CHA 0 "
      "2|fourteen.chars>FOURTE~1CHA 0 3";
  const VolumeImage empty = Made({});
  for (const auto& row : Split(rows, '|')) {
    const std::string name = Split(row, '>')[0];
    Insert(empty);
    ASSERT_EQ(Put(name, Pattern(10)), 0U) << name;
    const auto count = std::ranges::count_if(View().Slots(), [](Slot slot) { return slot[0] != 0; });
    const auto [stored, slot] = *View().Entries().begin();
    EXPECT_EQ(stored + " " + std::to_string(slot[12]) + " " + std::to_string(count), Split(row, '>')[1]);
    EXPECT_EQ(Put(name, Pattern(20)), 0U);
    EXPECT_EQ(List("\\"), Strings{name}) << "it finds itself";
  }
}

TEST_F(WritingTest, TailsOfAliasesCountUpTo99) {
  for (const std::string row : {"My Document.html>MYDOCU>HTM", "a .txt>A>TXT", "ab .txt>AB>TXT", ".profile>>PRO"}) {
    const std::string name = Split(row, '>')[0], base = Split(row, '>')[1], extension = Split(row, '>')[2];
    Strings aliases;
    std::string items = "/F";
    for (size_t i = 1; i <= 100; ++i) {
      aliases.push_back(base.substr(0, base.size() - (i >= 10 && !base.empty())) + "~" + std::to_string(i));
      if (i < 100) items += "|/F/" + aliases.back() + "." + extension + ":0";
    }
    const VolumeImage image = Made({}, items);
    for (const size_t taken : {8U, 9U, 98U, 99U}) {
      Insert(image);
      const auto slots = View().Slots(2);  // the files stand behind the dots, in their order
      for (size_t i = taken; i < 99; ++i) slots[2 + i][0] = slot::kDeleted;
      EXPECT_EQ(Put(name, {}, "\\F"), taken == 99 ? 238U : 0U) << name;
      EXPECT_EQ(Wrote(), taken != 99);
      EXPECT_EQ(View().Entries(2).size(), 2 + taken + Wrote());
      const std::string next = (aliases[taken] + std::string(8, ' ')).substr(0, 8) + extension;
      EXPECT_TRUE(!Wrote() || View().Entries(2).contains(next)) << next;
    }
    EXPECT_EQ(Trace(MakeFolder("\\F\\" + name)).substr(0, 4), "238 ");
    EXPECT_FALSE(Wrote());
  }
}

// ---- Folders

TEST_F(WritingTest, FolderNamesAreChecked) {
  Insert(Made({}, "/Folder|/FILE:10"));
  Strings bad = {"Docs", "\\", "\\Docs\\", "\\   ", "\\.", "\\..", "\\ . ", "\\Folder\\.. "};
  for (char c = 1; c != 0; ++c) {  // through 0x80 to 0xFF
    if (c < ' ' || std::string("/:*?\"<>|").find(c) != std::string::npos) bad.push_back(std::string("\\x") + c + "y");
  }
  for (const auto& path : bad) EXPECT_EQ(Trace(MakeFolder(path)), "244") << path;
  for (const auto path : {"\\none\\x", "\\FILE\\x"}) EXPECT_EQ(MakeFolder(path), 244U) << path;
  for (const auto path : {"\\ FOLDER  ", "\\file"}) EXPECT_EQ(MakeFolder(path), 236U) << path;
  EXPECT_FALSE(Wrote());
  for (const auto path : {"\\Folder\\ x", "\\Folder\\X\\..y"}) EXPECT_EQ(MakeFolder(path), 0U) << path;
  EXPECT_EQ(ReadTree(Volume()).count("/Folder/x/..y"), 1U);
  EXPECT_EQ(Trace(MakeFolder("\\Folder\\Z")),
            "0 r:root0 r:fat0 r:c2.0 r:c2.0 r:c2.0 w:c2.0 w:fat0 w:c6.0 r:c2.0 w:c6.0")
      << "one sector a cluster";
}

// ---- Deleting

TEST_F(WritingTest, OnlyFilesAreDeletedByTheNamesThatListingsShow) {
  Insert(Made(kSmall, "/FOLDER|/A long name:5000|/EMPTY:0"));
  for (const char* path : {"\\", "\\Folder", "\\Folder\\.", "\\Folder\\.."}) EXPECT_EQ(Delete(path), 241U) << path;
  for (const char* path : {"\\none", "\\FOLDER\\EMPTY", "\\ALONGN~1"}) EXPECT_EQ(Delete(path), 244U) << path;
  EXPECT_FALSE(Wrote());
  WriteU16(View().Entries()["EMPTY      "], slot::kClusterLow, 7);
  EXPECT_EQ(Trace(Delete("\\EMPTY")), "0 r:root0 r:root0 w:root0") << "whatever cluster it names";
}

TEST_F(WritingTest, ABrokenChainIsFreedAsFarAsItGoes) {
  VolumeImage image = Made({}, "/FILE:2560|/OTHER:1024");  // clusters 2 to 6; 7 and 8
  const VolumeView before(image);
  const uint32_t past = before.lastCluster + 1;
  // Link of cluster 4, first cluster of the file, status, requests for the FAT.
  std::vector<std::tuple<uint32_t, uint32_t, uint32_t, std::string>> rows;
  for (const uint32_t link : {0, 1, 2, 4, 0xFFF7, 0xFFF8}) rows.emplace_back(link, 2, 0, " r:fat0 w:fat0");
  for (const uint32_t link : {past, 0xFFF6U}) rows.emplace_back(link, 2, 251, " r:fat0");
  for (const uint32_t first : {0, 1}) rows.emplace_back(5, first, 0, "");
  for (const uint32_t first : {past, 0xFFFFU}) rows.emplace_back(5, first, 251, "");
  for (const auto& [link, first, status, requests] : rows) {
    for (const bool isDelete : {true, false}) {
      SCOPED_TRACE(std::to_string(first) + " to " + std::to_string(link));
      Insert(image);
      View().SetLink(4, link);
      WriteU16(View().Entries()["FILE       "], slot::kClusterLow, static_cast<uint16_t>(first));
      EXPECT_EQ(isDelete ? Delete("\\FILE") : Put("FILE", Pattern(2000)), status);
      EXPECT_TRUE(!isDelete || Trace(status) == std::to_string(status) + " r:root0 r:root0 w:root0" + requests);
      for (const uint32_t kept : {0U, 1U, 6U}) EXPECT_EQ(View().Link(kept), before.Link(kept));
      EXPECT_EQ(View().Link(2) == 0, isDelete && requests.ends_with("w:fat0"));
      EXPECT_EQ(View().Link(4) == 0, isDelete && (requests.ends_with("w:fat0") || link == 0));
      EXPECT_EQ(Get("\\OTHER"), Pattern(1024));
      EXPECT_TRUE(isDelete || status != 0 || Get("\\FILE") == Pattern(2000));
    }
  }
}

// A folder that the FAT does not know (an interrupted request leaves that), and chains that lead into one: they are
// read, but nothing is ever stored in their clusters.
TEST_F(WritingTest, ClustersOfTheFoldersOnTheWayAreNeverHandedOut) {
  for (const VolumeShape& shape : {VolumeShape{16, 1}, {16, 4}, {32, 1}}) {
    SCOPED_TRACE(std::to_string(shape.fatBits) + "/" + std::to_string(shape.sectorsPerCluster));
    const int slots = static_cast<int>(shape.sectorsPerCluster) * 16 - 2;
    const VolumeImage image =
        Made(shape, "/OUTER|/OUTER/INNER|/OUTER/INNER/FILE:2500|/OLD:5000" + Numbered("/OUTER/INNER/F", 1, slots - 2));
    const VolumeView made(const_cast<VolumeImage&>(image));
    const uint32_t outer = ClusterIn(made.Entries()["OUTER      "]), inner = outer + 1;
    const uint32_t file = ClusterIn(made.Entries(inner)["FILE       "]);
    const std::string in = "\\OUTER\\INNER";
    using Request = std::function<uint32_t()>;
    const Request list = [&] { return Read(in)->status; }, makeFolder = [&] { return MakeFolder(in + "\\NEW"); };
    const Request put = [&] { return Put("LAST", Pattern(10), in); }, grow = [&] { return Put("A long name", {}, in); };
    const Request overwrite = [&] { return Put("FILE", Pattern(9000), in); };
    const Request erase = [&] { return Delete(in + "\\FILE"); }, eraseOld = [&] { return Delete("\\OLD"); };
    // The damage: a cluster that is linked to another one, or in this folder an entry that begins at another one.
    struct Row {
      uint32_t cluster, other;
      Request request;
      uint32_t status;
      const char* entry = nullptr;
    };
    const bool is32 = shape.fatBits == 32;
    std::vector<Row> rows = {{inner, 0, list, 0},         {inner, 0, overwrite, 251}, {inner, 0, put, 251},
                             {inner, 0, grow, 251},       {inner, 1, grow, 251},      {outer, 0, put, 251},
                             {outer, 0, makeFolder, 251}, {file, inner, erase, 251},  {file, inner, overwrite, 251}};
    if (is32) {
      for (const auto& [request, status] : {std::pair{list, 0U}, {put, 251U}, {makeFolder, 251U}}) {
        rows.push_back({outer, UINT32_MAX, request, status, "INNER      "});
      }
      rows.push_back({0, 2, eraseOld, 251, "OLD        "});
    }
    for (size_t row = 0; row < rows.size(); ++row) {
      const auto& [cluster, other, request, status, entry] = rows[row];
      Insert(image);
      const VolumeView view = View();
      if (entry == nullptr) {
        view.SetLink(cluster, other);
      } else {
        WriteU16(view.Entries(cluster)[entry], slot::kClusterHigh, static_cast<uint16_t>(other >> 16));
        WriteU16(view.Entries(cluster)[entry], slot::kClusterLow, static_cast<uint16_t>(other));
      }
      VolumeImage damaged = Volume();
      const VolumeView before(damaged);
      EXPECT_EQ(request(), status) << row;
      const auto after = view.Slots(inner), old = before.Slots(inner);
      for (size_t i = 0; i < old.size(); ++i) {
        EXPECT_TRUE(after[i][0] == slot::kDeleted || std::ranges::equal(after[i], old[i])) << row << ", " << i;
      }
      for (const uint32_t kept : {0U, 1U, outer, inner}) EXPECT_EQ(view.Link(kept), before.Link(kept)) << row;
      EXPECT_TRUE(!is32 || view.Link(2) == before.Link(2)) << row << ", the root keeps its cluster";
    }
  }
}

// A chain that loops over two sectors of the FAT, on a device that drops what it says it wrote.
TEST_F(WritingTest, FreeingEndsAlsoWhenTheDeviceDropsIt) {
  Insert(Made({}, "/FILE:2560"));
  View().SetLink(3, 300);
  View().SetLink(300, 3);
  world.fate = [&](const LoggedDatagram& datagram) -> Fate {
    if (!IsRequest(datagram, Command::RFAWriteData) || ReadU32(datagram.bytes, 48) >= 30) return {};
    world.Inject({{127, 0, 0, 11}, 14001}, ReplyOf(datagram.bytes), 400us);
    return {.copies = 0};
  };
  EXPECT_EQ(Delete("\\FILE"), 251U);
  EXPECT_LE(Requests().size(), 2 * View().lastCluster + 10);
}

TEST_F(WritingTest, TimesOutsideTheFormatBecomeTheNearest) {
  Insert(Made({}));
  // The host's time and the file's, and what is stored of either: date and time.
  const std::tuple<platform::LocalTime, int64_t, uint32_t> rows[] = {
      {{1601, 1, 1, 0, 0, 0}, 0, 0x00210000},
      {{1601, 1, 1, 0, 0, 0}, -2111111111, 0x00210000},
      {{2108, 1, 1, 0, 0, 0}, 4354819200, 0xFF9FBF7D},
      {{2016, 12, 31, 23, 59, 60}, 1483228799, 0x499FBF7D}};
  for (const auto& [host, time, stored] : rows) {
    world.localTime = host;
    MakeLocal("FILE", Pattern(1), time);
    EXPECT_EQ(PutLocal("FILE"), 0U);
    const Slot entry = View().Entries()["FILE       "];
    for (const size_t at : {slot::kWrite, slot::kCreation}) EXPECT_EQ(ReadU32(entry, at), stored);
    EXPECT_EQ(Delete("\\FILE"), 0U);
  }
}

// A delete that ended half-way leaves long-name slots whose name is nobody's: what is stored behind them keeps its own.
// Those that a broken run leaves open are nobody's either, least of all those of the name before.
TEST_F(WritingTest, LongNamesThatAreOrphanedOrBrokenNameAndTakeNothingElse) {
  Insert(Made({}, "/A first name, of three parts, no.:10|/A name:10|/Another long name:10" + Numbered("/F", 1, 6)));
  auto slots = View().Slots();
  for (const size_t i : {3U, 5U, 8U}) slots[i][0] = slot::kDeleted;  // the three short entries
  // Another system may have put a name there.
  std::ranges::copy(slots[4], slots[2].begin());
  std::ranges::copy(slots[9], slots[3].begin());
  EXPECT_EQ(List("\\")[0], "A name");
  EXPECT_EQ(Delete("\\A name"), 0U);
  EXPECT_EQ(slots[1][0], 2) << "of the run before";

  Insert(Made(kSmall, "/A first name, of three parts, no.:10|/B second name of three parts, yes:10"));
  slots = View().Slots();
  slots[4][0] = 0x44;  // ordinals 4, 4 and 1: two places in a row are left open
  slots[5][0] = 4;
  EXPECT_EQ(Trace(Delete("\\B second name")), "0 r:root0 r:root0 w:root0 r:root0 w:root0 r:fat0 w:fat0");
  for (size_t i = 0; i < 8; ++i) EXPECT_EQ(slots[i][0] == slot::kDeleted, i > 4) << i;
}

// ---- Formatting

TEST_F(WritingTest, FormattingClearsTheFirstFatAndTheRoot) {
  const std::tuple<VolumeShape, uint32_t, std::string> rows[] = {
      // shape, size of the device by that of the volume
      {kSmall, 1, "ww:fat1-root0"},
      {kSmall, 9, "ww:fat1-fat15 w:root0 ww:root0"},
      {{16, 1, 0, 2, 0, 48}, 1, "ww:fat1-fat15 ww:root0 w:root2"},
      {{32, 1}, 1, "ww:fat1-fat511 w:c2.0"},
      {{32, 4}, 9, "ww:fat1-fat511 w:c2.0 ww:c2.0-c2.2"},
      {{32, 1, 0, 2}, 9, "ww:fat1-fat511 w:other0 w:c2.0"}};
  for (const auto& [shape, factor, requests] : rows) {
    VolumeImage image = Made(shape, "/A file:150000");
    image.SetSectorCount(image.SectorCount() * factor);
    Insert(image);
    const VolumeView view = View();
    EXPECT_EQ(Trace(Format()), "0 r:fat0 w:fat0 " + requests);
    EXPECT_EQ(Put("FILE", Pattern(100)), 0U);
    for (uint32_t cluster = 4; view.is32 && cluster < 0x10002; ++cluster) view.SetLink(cluster, 0x0FFFFFFF);
    EXPECT_EQ(Put("HIGH", Pattern(100)), 0U);
    EXPECT_EQ(ClusterIn(view.Entries()["HIGH       "]), view.is32 ? 0x10002U : 3U);
    EXPECT_EQ(Get("\\HIGH"), Pattern(100));
    if (!view.is32) continue;
    EXPECT_EQ(MakeFolder("\\DIR"), 0U);
    EXPECT_EQ(MakeFolder("\\DIR\\INNER"), 0U);
    const ListingEntry* const dots = Read("\\DIR\\INNER")->entries;
    EXPECT_EQ(dots[0].firstCluster, 0x10004U);
    EXPECT_EQ(dots[1].firstCluster, 0x10003U);
  }
}

}  // namespace
}  // namespace media_adapter::sim

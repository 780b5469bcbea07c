// Names on the volume and what becomes of their entries: short names and aliases, long names, folders, deleting,
// formatting, and volumes that somebody broke.
#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

constexpr VolumeShape kSmall{.sectorsPerCluster = 4, .rootEntries = 32};

TEST_F(WritingTest, NamesAreStoredShortOrWithAnAlias) {
  const std::tuple<std::string, std::string, int, int> rows[] = {  // name, stored name, case flags, slots
      {"README.TXT", "README  TXT", 0x00, 1},        {"readme.txt", "README  TXT", 0x18, 1},
      {"README.txt", "README  TXT", 0x10, 1},        {"ReadMe.txt", "README~1TXT", 0, 2},
      {"12345678.123", "12345678123", 0, 1},         {"123456789", "123456~1   ", 0, 2},
      {"readme", "README     ", 0x08, 1},            {"a.html", "A~1     HTM", 0, 2},
      {"a b", "AB~1       ", 0, 2},                  {"a+.t=", "A_~1    T_ ", 0, 2},
      {"[,;].a", "____~1  A  ", 0, 2},               {"x.tar.gz", "X_TAR~1 GZ ", 0, 2},
      {"..a", "_~1     A  ", 0, 2},                  {".profile", "~1      PRO", 0, 2},
      {"My Document.html", "MYDOCU~1HTM", 0, 3},     {"\xE5" "bc.txt", "\x05" "BC     TXT", 0x18, 1},
      {"\xE5 b", "\x05" "B~1       ", 0, 2},         {"thirteen.char", "THIRTE~1CHA", 0, 2},
      {"fourteen.chars", "FOURTE~1CHA", 0, 3},       {std::string(26, 'l'), "LLLLLL~1   ", 0, 3},
      {std::string(255, 'l'), "LLLLLL~1   ", 0, 21}};
  const VolumeImage empty = VolumeBuilder({}).Build();
  for (const auto& [name, stored, caseFlags, count] : rows) {
    Insert(empty);
    ASSERT_EQ(Put(name, Pattern(10)), 0U) << name;
    const auto slots = View().Slots();
    EXPECT_EQ(std::ranges::count_if(slots, [](Slot slot) { return slot[0] != 0; }), count) << name;
    ASSERT_TRUE(View().Entries().contains(stored)) << name;
    EXPECT_EQ(View().Entries()[stored][12], caseFlags) << name;
    EXPECT_EQ(Complaints(), Strings{}) << name;
    EXPECT_EQ(Put(name, Pattern(20)), 0U);
    EXPECT_EQ(List("\\"), Strings{name}) << "it finds itself";
    EXPECT_EQ(Get("\\" + name), Pattern(20)) << name;
  }
}

TEST_F(WritingTest, TailsOfAliasesCountUpTo99) {
  const std::tuple<std::string, std::string, std::string, size_t, std::string> rows[] = {
      // name; base and extension of its aliases that are taken, and how many; the next one, or none
      {"My Document.html", "MYDOCU", ".HTM", 8, "MYDOCU~9HTM"}, {"My Document.html", "MYDOCU", ".HTM", 9, "MYDOC~10HTM"},
      {"My Document.html", "MYDOCU", ".HTM", 98, "MYDOC~99HTM"}, {"My Document.html", "MYDOCU", ".HTM", 99, ""},
      {"a .txt", "A", ".TXT", 9, "~10     TXT"}, {"a .txt", "A", ".TXT", 10, "~11     TXT"},
      {"ab .txt", "AB", ".TXT", 9, "A~10    TXT"}, {".profile", "", ".PRO", 9, "~10     PRO"},
      {".profile", "", ".PRO", 99, ""}, {"\xE5 b", "\xC3\x95" "B", "", 1, "\x05" "B~2       "}};
  for (const auto& [name, base, extension, count, expected] : rows) {
    VolumeBuilder builder({});
    builder.AddFolder("/F");
    Strings taken;
    for (size_t i = 1; i <= count; ++i) {
      taken.push_back(base.substr(0, base.size() - (i >= 10 && !base.empty())) + "~" + std::to_string(i) + extension);
    }
    builder.AddFiles("/F", taken);
    Insert(builder.Build());
    ASSERT_EQ(View().Entries(2).size(), count + 2) << name;
    EXPECT_EQ(Put(name, {}, "\\F"), expected.empty() ? 238U : 0U) << name;
    EXPECT_EQ(View().Entries(2).contains(expected), Wrote()) << name << " " << expected;
    EXPECT_EQ(Wrote(), !expected.empty());
    EXPECT_EQ(MakeFolder("\\F\\" + name + "x"), expected.empty() && name[0] != '.' ? 238U : 0U);
  }
}

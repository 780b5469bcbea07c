// The pure parts of the command-line tool: what it prints of a device's bytes, which paths and names it accepts, which
// files are the same, the texts of settings, and settings files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <random>
#include <tuple>

#include "cli/console/progress_text.h"
#include "cli/console/text.h"
#include "cli/console/wildcards.h"
#include "cli/console/words.h"
#include "cli/device/comparison.h"
#include "cli/device/device_choice.h"
#include "cli/device/device_path.h"
#include "cli/device/element_value.h"
#include "cli/device/entry_filter.h"
#include "cli/device/passwords.h"
#include "cli/device/volume_name.h"
#include "cli/local/exclusions.h"
#include "cli/local/local_name.h"
#include "cli/local/settings_file.h"
#include "platform/posix/local_time.h"
#include "protocol/little_endian.h"

namespace media_adapter::cli {
namespace {

using namespace std::string_literals;

std::string RandomBytes(std::mt19937& random, size_t longest) {
  std::string bytes(random() % (longest + 1), '\0');
  // Few values, so that escapes, UTF-8 lead bytes and their continuations meet often.
  constexpr std::string_view kBytes = "\\x4a\x1b\xc2\x9b\xe2\x80\xae\xff\xed\xa0\x0a\x7f";
  std::ranges::generate(bytes, [&] { return kBytes[random() % kBytes.size()]; });
  return bytes;
}

TEST(Text, EscapesWhatIsNotPrintableUtf8AndNothingElse) {
  EXPECT_EQ(Escape("Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xb5"), "Caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x8e\xb5");
  EXPECT_EQ(Escape("a\\b"), "a\\\\b");
  EXPECT_EQ(Escape("\x1b[31m\n\x7f\0z"s), "\\x1b[31m\\x0a\\x7f\\x00z");
  EXPECT_EQ(Escape("Caf\xe9"), "Caf\\xe9");
  EXPECT_EQ(Escape("\xc2\x9b"), "\\xc2\\x9b") << "a control character of two bytes drives terminals too";
  EXPECT_EQ(Escape("\xe2\x80\xae"), "\\xe2\\x80\\xae") << "turns the rest of the line round";
  EXPECT_EQ(Escape("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82"),
            "\\xc0\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\\xe2\\x82")
      << "overlong, surrogate, above the last character, cut off";
  EXPECT_EQ(Unescape("\\x4"), std::nullopt);
  EXPECT_EQ(Unescape("\\n"), std::nullopt);
}

TEST(Text, EscapesRoundTripAndAlwaysMakeValidJson) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    const std::string bytes = RandomBytes(random, 8);
    const std::string text = Escape(bytes);
    ASSERT_EQ(Unescape(text), bytes) << text;
    ASSERT_NO_THROW(nlohmann::json(text).dump()) << text;
    ASSERT_TRUE(std::ranges::none_of(text, [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }));
  }
}

TEST(DevicePath, TakesBothSeparatorsAndTheCurrentFolder) {
  const auto cases =  // FOLDER|ARGUMENT|PATH
      SplitWords(R"(\||\ \a||\a \a|/|\ \a|b/c\d/|\a\b\c\d \a|\b|\b \a\b|..|\a \a|../../../x|\x)"
                 R"( \a|./b/.//c/..|\a\b \|b/./..|\ \|...|\... '\|a /b|\a \b')");
  for (const std::string& c : *cases) {
    const size_t first = c.find('|'), second = c.rfind('|');
    EXPECT_EQ(ResolveDevicePath(c.substr(0, first), c.substr(first + 1, second - first - 1)), c.substr(second + 1))
        << c;
  }
  for (const std::string path : {"\\a\\b", "\\a"}) {
    EXPECT_EQ(JoinDevicePath(SplitDevicePath(path).folder, SplitDevicePath(path).name), path);
  }
  EXPECT_EQ(SplitDevicePath("\\").name, "");
  EXPECT_EQ(DisplayPath("\\"), "/");
  EXPECT_EQ(DisplayPath("\\a\\x\x1b\xe9"), "/a/x\\x1b\xc3\xa9");
  EXPECT_EQ(FoldDeviceName("\\Song.MP3  \\ A"), FoldDeviceName("\\song.mp3\\ a "));
  EXPECT_NE(FoldDeviceName(" song"), FoldDeviceName("song"));
  EXPECT_NE(FoldDeviceName("\xc9"), FoldDeviceName("\xe9")) << "only A to Z fold";
}

TEST(VolumeName, EveryByteIsOneCharacterAndComesBack) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '/' && byte != '\\') bytes += static_cast<char>(byte);
  }
  EXPECT_EQ(TypedPath(ShowName(bytes)).bytes, bytes);
  EXPECT_EQ(Escape(ShowName(bytes)).find("\\xc"), std::string::npos) << "what is shown is printable";
  EXPECT_EQ(VolumeNameFor(LocalNameFor(bytes)).bytes, bytes);
  EXPECT_EQ(ShowName("Gr\xfc\xdf\x9b"), "Gr\xc3\xbc\xc3\x9f\\x9b");
  EXPECT_EQ(TypedPath("\\xylo/\\x41\\x9B\\").bytes, "\\xylo\\\\x41\x9b\\") << "what needs no escape is no escape";
  EXPECT_NE(TypedPath("/\xc4\x80").problem.find("U+00FF"), std::string::npos);
  EXPECT_FALSE(TypedPath("/a\\x00b").problem.empty()) << "would end the path";
  EXPECT_FALSE(VolumeNameFor("\xfc").problem.empty()) << "not UTF-8";
}

TEST(LocalName, LetsNothingLeaveItsFolder) {
  for (const std::string& name :
       {""s, "."s, ".."s, "a/b"s, "/"s, "a\\b"s, "a\0b"s, "a\nb"s, "\x1b"s, "\x7f"s, std::string(256, 'a')}) {
    EXPECT_FALSE(IsSafeLocalName(name)) << Escape(name);
  }
  for (const std::string& name : {"..."s, ".hidden"s, "a b"s, "Caf\xe9"s, "-r"s, std::string(255, 'a')}) {
    EXPECT_TRUE(IsSafeLocalName(name)) << Escape(name);
  }
}

TEST(Words, QuotesKeepBlanksAndBackslashesAreOrdinary) {
  EXPECT_EQ(SplitWords("  get \"\\My Music\\a'b\"  'x\"y'z\t\"\" "),
            (std::vector<std::string>{"get", "\\My Music\\a'b", "x\"yz", ""}));
  EXPECT_EQ(SplitWords("ls \"a"), std::nullopt);
  const auto describe = [](std::string_view line) {
    const LastWord word = FindLastWord(line);
    return std::to_string(word.start) + word.text + (word.quote != 0 ? word.quote : '.') +
           (word.isFirst ? "first" : "");
  };
  EXPECT_EQ(describe("get x \"My Mu"), "6My Mu\"");
  EXPECT_EQ(describe(" ge"), "1ge.first");
  EXPECT_EQ(describe("get "), "4.");
}

TEST(Wildcards, MatchNamesAsShellsDo) {
  const auto cases = SplitWords(  // PATTERN NAME, where they match
      "* a  *.mp3 a.b.mp3  ?? ab  ?? \xc3\xa4\xe2\x82\xac  [a-c]x bx  [!a-c]x dx  [^a]x bx  []]x ]x  [a-]x -x  [!]a]x "
      "bx"
      "  [[]a] [a]  [a [a  a]b a]b  a*b*c abbcbc  *a*a* aa  .* .x  SONG.* song.MP3  [x-z]\xe9 Y\xe9  x[A-C] xb  a** ab"s);
  for (size_t i = 0; i < cases->size(); i += 2) {
    EXPECT_TRUE(NamePattern((*cases)[i], {.ignoresCase = true}).Matches((*cases)[i + 1])) << (*cases)[i];
  }
  const auto others = SplitWords(
      "* .a  ?a .a  [.]a .  [!a]b .b  a* ba  *.mp3 mp3  [a-c] d  [!a]x Ax  ?? a  ? \xc3\xa4y  *ab aba"
      "  [a [b  [z-a] b");
  for (size_t i = 0; i < others->size(); i += 2) {
    EXPECT_FALSE(NamePattern((*others)[i], {.ignoresCase = true}).Matches((*others)[i + 1])) << (*others)[i];
  }
  EXPECT_FALSE(NamePattern("A*").Matches("ab")) << "letter case counts unless it is said otherwise";
  EXPECT_TRUE(NamePattern("*x", {.hidesDots = false}).Matches(".x"));
  EXPECT_FALSE(NamePattern(std::string(40, '*') + "b").Matches(std::string(5000, 'a'))) << "and that soon";
  // What was quoted is no wildcard.
  EXPECT_EQ(SplitPatterns(R"(*."*" '[a]'? "a b")"), (std::vector<std::string>{"*.\0*"s, "\0[a]?"s, "a b"}));
  EXPECT_TRUE(NamePattern("\0[a]?"s).Matches("[a]b"));
  EXPECT_FALSE(NamePattern("*.\0*"s).Matches("a.b"));
  EXPECT_FALSE(HasWildcards(QuoteWildcards("*?[a]")) || HasWildcards("a[b") || !HasWildcards("[a]"));
}

ListingEntry EntryOf(uint32_t size, const WallTime& time) {
  ListingEntry entry{};
  entry.size = size;
  std::tie(entry.year, entry.month, entry.day, entry.hour, entry.minute, entry.second) = std::tuple_cat(time);
  return entry;
}

TEST(Entries, AreShownAndFilteredAsElsewhere) {
  EXPECT_EQ(ShortSize(1023) + " " + ShortSize(1025) + " " + ShortSize(10137) + " " + ShortSize(10241) + " " +
                ShortSize(1048575) + " " + ShortSize(UINT32_MAX),
            "1023 1.1K 9.9K 11K 1.0M 4.0G");
  ListingEntry entry = EntryOf(1025, {2024, 5, 6, 7, 8, 10});
  std::ranges::copy(".Gr\xfc\xdf.MP3"s, entry.name);
  const std::chrono::sys_seconds now = *EntryTime(entry) + std::chrono::hours(47);
  const auto matches = [&](bool (EntryFilter::*add)(std::string_view), std::string_view words) {
    std::string results;
    const auto split = SplitWords(words);
    for (const std::string& word : *split) {
      EntryFilter filter;
      const bool isTaken = (filter.*add)(word);
      results += !isTaken ? '!' : filter.Matches(entry, now) ? '1' : '0';
    }
    return results;
  };
  EXPECT_EQ(matches(&EntryFilter::AddName, "*.MP3 *.mp3 .Gr?\xc3\x9f.*"), "101");
  EXPECT_EQ(matches(&EntryFilter::AddNameOfAnyCase, "*.mp3"), "1");
  EXPECT_EQ(matches(&EntryFilter::AddType, "f d x"), "10!");
  EXPECT_EQ(matches(&EntryFilter::AddSize, "1025c +1024c -1025c 2k -2k +1k 3 1M -1M 1x k +-1 ''"), "110101110!!!!");
  EXPECT_EQ(matches(&EntryFilter::AddDays, "1 +0 +1 -2 -1 1d"), "11010!");
  EXPECT_EQ(matches(&EntryFilter::AddMinutes, "+2819 2820 -2821"), "111");
  EXPECT_EQ(matches(&EntryFilter::AddNewerThan,
                    "2024-05-06 '2024-05-06 07:08' 2024-05-06T07:08:10 2024-05-07 2024-05 '2024-05-06 07' 2024-05-06x "
                    "2024-13-01"),
            "1100!!!!");
  entry = RootEntry();
  EXPECT_EQ(matches(&EntryFilter::AddDays, "+0 -1") + matches(&EntryFilter::AddName, "/"), "001");
}

LocalState LocalFile(uint64_t size, std::time_t time) {
  const auto sinceEpoch = std::chrono::sys_seconds(std::chrono::seconds(time));
  return {size, std::chrono::file_clock::from_sys(sinceEpoch), StoredTime(platform::ToLocalTime(time))};
}

TEST(Comparison, ACopyEitherWayIsTheSameInAnyHour) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  constexpr std::time_t kSpring = 1616893200, kAutumn = 1635642000;  // the clock is changed, both in 2021
  for (const std::time_t middle : {std::time_t{0}, kSpring, kAutumn, std::time_t{4354819200}}) {
    for (std::time_t time = middle - 9000; time < middle + 9000; time += 599) {
      const LocalState local = LocalFile(5, time);
      const ListingEntry there = EntryOf(5, local.stored);
      ASSERT_EQ(Compare(local, there), Comparison::Same) << time;
      ASSERT_EQ(Compare(LocalFile(5, TimeOfCopy(there)), there), Comparison::Same) << time;
    }
  }
  for (const WallTime& time : {WallTime{2021, 3, 28, 2, 30, 0}, {1980, 0, 0, 0, 0, 0}, {2107, 15, 31, 31, 63, 62}}) {
    const ListingEntry there = EntryOf(5, time);
    EXPECT_EQ(Compare(LocalFile(5, TimeOfCopy(there)), there), Comparison::Same) << there.month;
  }
  const ListingEntry there = EntryOf(5, LocalFile(5, kSpring).stored);
  EXPECT_EQ(Compare(LocalFile(4, kSpring + 1), there), Comparison::Different);
  EXPECT_EQ(Compare(LocalFile(5, kSpring + 2), there), Comparison::LocalIsNewer);
  EXPECT_EQ(Compare(LocalFile(5, kSpring - 1), there), Comparison::DeviceIsNewer);
}

TEST(Exclusions, MeanNamesAtEveryDepthOrPathsFromTheTop) {
  const auto cases = SplitWords(  // PATTERN|PATH>: "x" excluded; a path that ends in "/" is a folder
      R"(*.tmp|a.tmp>x *.tmp|b/c/a.TMP>x *.tmp|a.tmp/b> a/b|c/a/b>x a/b|a/c/b> /a|a>x /a|b/a> a/|a> a/|b/a/>x)"
      R"( **/x|x>x a/**/x|a/b/c/x>x a/**/x|a/x>x ?|ä>x [a-c]?|bz>x [!a-c]?|bz> /*/x|a/x>x /*/x|x> *|.hidden>x)");
  for (const std::string& c : *cases) {
    const size_t bar = c.find('|'), end = c.rfind('>');
    std::string path = c.substr(bar + 1, end - bar - 1);
    const bool isFolder = path.ends_with('/');
    if (isFolder) path.pop_back();
    EXPECT_EQ(Exclusions({c.substr(0, bar)}).Has(path, isFolder), c.ends_with('x')) << c;
  }
}

TEST(Progress, TellsWhatIsKnownAndNothingElse) {
  TransferState state = {2, 3, 2048, 8192, 4096, {}, 3, 1};
  EXPECT_EQ(NumberText(state) + "x" + ProgressText(state),
            "2/3 x  4.0 KB  25% of 8.0 KB done  1.0 KB/s  0:05 left  0:03");
  state.percent = 50;
  EXPECT_EQ(ProgressText(state), "  [###############               ] 50% of 4.0 KB  1.3 KB/s  0:03 left");
  EXPECT_EQ(ProgressText({1, 1, 0, 9, 9, {}, 61, 61}), "  9 bytes  1:01");
  EXPECT_EQ(ProgressText({.seconds = 3601}), "  1:00:01");
  EXPECT_EQ(Plot(std::vector<uint32_t>{9, 0, 1, 7, 14}, 4), "▁▁▄█");
}

// The text that comes back from the field which `text` gives, or "!" when it is refused.
std::string Reformat(std::string_view element, std::string_view text) {
  const ElementRow& row = *FindElementByName(element);
  const ParsedValue value = ParseValue(row, text);
  if (!value.problem.empty()) return "!";
  EXPECT_EQ(value.field.size(), row.maxSize);
  return FormatValue(row, value.field);
}

TEST(ElementValue, TakesWhatTheTableAllowsInEachForm) {
  const auto cases = SplitWords(  // ELEMENT=TEXT>what comes back
      R"('8.0=Caf\xe9 \\>Caf\xe9 \\' 8.0=> '0.0=16 bytes exactly>16 bytes exactly' '0.0=17 bytes, one too>!')"
      R"( 0.0=a\x00b>! 0.0=a\b>! 8.1=14>14 8.1=0x0e>14 8.1=15>! 8.1=0>! 8.1=257>! 8.1=>! 8.1=1x>! 8.1=-1>!)"
      R"( '8.1= 1>!' 8.4=2346>2346 8.4=2347>! 8.4=65792>! 9.0=32>32 9.0=3>! 2.3=4294967295>4294967295)"
      R"( 2.3=4294967296>! 1.0=10.0.0.255>10.0.0.255 1.0=10.0.0.256>! 1.0=10.0.0>! 1.0=1.2.3.4.5>! 1.0=1.2.3.>!)"
      R"( 2.0=00:11:22:aa:BB:cc>001122aabbcc 2.0=001122aabb>! 2.0=001122aabbc>! 2.0=001122aabb:>!)"
      R"( 2.0=001122aabbcg>! 9.6=05050505>05050505 9.6=05050506>! 9.3=abc>! 10.0=> 10.0=02005e0000>!)"
      R"( 10.0=02005e000001,>! 10.0=02005e000001,02-00-5e-00-00-02>02005e000001,02005e000002)");
  for (const std::string& c : *cases) {
    const size_t equals = c.find('='), result = c.rfind('>');
    EXPECT_EQ(Reformat(c.substr(0, equals), c.substr(equals + 1, result - equals - 1)), c.substr(result + 1)) << c;
  }
  for (const char* name : {"8", "8.", ".8", "8.6.1", "256.0", "8.a", " 8.0", "9.4", ""})
    EXPECT_EQ(FindElementByName(name), nullptr) << name;
  std::string many;
  for (uint32_t i = 0; i < kMaxListEntries; ++i) many += "02005e000001,";
  EXPECT_NE(Reformat("10.0", many.substr(0, many.size() - 1)), "!");
  EXPECT_EQ(Reformat("10.0", many + "02005e000001"), "!");

  const ElementRow& secret = *FindElementByName("10.2");
  const std::vector<uint8_t> key = ParseSecret(secret, "key\n").field;
  EXPECT_EQ(std::string(key.begin(), key.end()), "key" + std::string(21, '\0'));
  EXPECT_EQ(ParseSecret(secret, "key\r\n").field, key);
  EXPECT_EQ(ParseSecret(secret, std::string(23, 'k') + "\n").field.back(), 0);
  EXPECT_EQ(ParseSecret(secret, std::string(24, 'k') + "\r\n").field.back(), 'k');
  EXPECT_EQ(ParseSecret(secret, std::string(23, '\x80') + "\n").field.back(), '\n') << "bytes that fill the field";
  EXPECT_FALSE(ParseSecret(secret, std::string(25, 'k')).problem.empty());
}

std::vector<const ElementRow*> AllRows() {
  std::vector<const ElementRow*> rows;
  for (const ElementRow& row : ElementTable()) rows.push_back(&row);
  return rows;
}

// An image in which every element of a settings file has a valid value.
std::vector<uint8_t> RandomImage(std::mt19937& random) {
  std::vector<uint8_t> image(952);
  for (const ElementRow& row : ElementTable()) {
    if (!IsInSettingsFile(row)) continue;
    const std::span<uint8_t> field = std::span(image).subspan(row.configOffset, row.maxSize);
    // Many zeros, so that every check is met soon.
    do {
      std::ranges::generate(field, [&] { return static_cast<uint8_t>(random() % 2 * random()); });
    } while (!IsValidValue(row, field));
  }
  return image;
}

TEST(SettingsFile, SaveLoadSaveGivesTheSameFileAndTheSameValues) {
  std::mt19937 random(2);
  const std::vector<const ElementRow*> rows = AllRows();
  for (int i = 0; i < 50; ++i) {
    const std::vector<uint8_t> image = RandomImage(random);
    const std::string file = WriteSettings(rows, image);
    const LoadedSettings loaded = ReadSettings(file);
    ASSERT_TRUE(loaded.problems.empty()) << loaded.problems.front();
    std::vector<uint8_t> again(image.size());
    for (const auto& [row, field] : loaded.settings) {
      const auto saved = ValueInField(*row, std::span(image).subspan(row->configOffset, row->maxSize));
      ASSERT_TRUE(std::ranges::equal(saved, ValueInField(*row, field))) << ElementName(*row);
      std::ranges::copy(field, again.begin() + row->configOffset);
    }
    ASSERT_EQ(WriteSettings(rows, again), file);
  }
}

TEST(SettingsFile, NamesEveryProblemAndLeavesSecretsOut) {
  EXPECT_EQ(WriteSettings(AllRows(), std::vector<uint8_t>(952, 1)).find("\"9.3\""), std::string::npos);
  const auto problems = [](const std::string& settings) {
    const LoadedSettings loaded = ReadSettings(R"({"format": 1, "settings": )" + settings + "}");
    std::string all;
    for (const std::string& problem : loaded.problems) all += problem.substr(0, problem.find(' ')) + " ";
    return all;
  };
  EXPECT_EQ(problems(R"({"8.1": 6, "8.0": "x", "10.0": []})"), "");
  EXPECT_EQ(problems(R"({"8.1": 15, "8.4": "300", "0.0": 5, "10.0": "", "10.0": [1]})"), "10.0: ");
  EXPECT_EQ(problems(R"({"8.1": 15, "8.4": "300", "0.0": 5, "10.0": [1], "1.0": "1.2.3", "8.3": 0.5, "8.2": -1})"),
            "8.1: 8.4: 0.0: 10.0: 1.0: 8.3: 8.2: ");
  EXPECT_EQ(problems(R"({"10.0": [""], "8.1": 1, "08.1": 2})"), "10.0: 08.1: ");
  EXPECT_EQ(problems(R"({"10.0": ["02005e000001,02005e000002"]})"), "10.0: ");
  EXPECT_EQ(problems(R"({"9.3": "x", "0.2": "x", "9.4": 1, "\u001b": 1})"), "9.3: 0.2: 9.4: \\x1b: ");
  EXPECT_EQ(ReadSettings("{\n\"format\": 1,\n\"settings\": {\"8.1\": 1e999}}").problems,
            std::vector<std::string>{"line 3: the number 1e999 is too large"});
  EXPECT_EQ(ReadSettings("{\n\"format\" 1}").problems, std::vector<std::string>{"line 2: no valid JSON"});
  for (const char* file : {"", "{", "[]", "{}", R"({"format": 2, "settings": {}})", R"({"format": 1})",
                           R"({"format": 1, "settings": []})"}) {
    EXPECT_FALSE(ReadSettings(file).problems.empty()) << file;
  }
}

TEST(DeviceChoice, MatchesNameIndexAndMac) {
  std::vector<DeviceEntry> devices(3);
  constexpr std::string_view kNames[] = {"Lounge", "sixteen bytes ok", "1"};
  for (size_t i = 0; i < 3; ++i) {
    std::ranges::copy(kNames[i], devices[i].name);
    devices[i].macAddress[5] = static_cast<uint8_t>(0xa0 + i);
  }
  EXPECT_EQ(MatchingDevices(devices, ""), (std::vector<size_t>{0, 1, 2}));
  EXPECT_EQ(MatchingDevices(devices, "Lounge"), std::vector<size_t>{0});
  EXPECT_TRUE(MatchingDevices(devices, "lounge").empty());
  EXPECT_EQ(MatchingDevices(devices, "sixteen bytes ok"), std::vector<size_t>{1});
  EXPECT_EQ(MatchingDevices(devices, "1"), (std::vector<size_t>{1, 2}))
      << "an index and a name: the person must say which";
  EXPECT_EQ(MatchingDevices(devices, "00-00-00-00-00-A2"), std::vector<size_t>{2});
  devices[1].ipAddress[0] = 10;
  EXPECT_EQ(MatchingDevices(devices, "10.0.0.0"), std::vector<size_t>{1});

  Passwords passwords;
  EXPECT_EQ(passwords.Read("common\r\nLounge:a:b\n00:00:00:00:00:A2:mac\n"), "");
  EXPECT_EQ(passwords.For(devices[0]), "a:b");
  EXPECT_EQ(passwords.For(devices[1]), "common");
  EXPECT_EQ(passwords.For(devices[2]), "mac");
  EXPECT_EQ(passwords.Read("Lounge:a\n1:b"), "");
  EXPECT_EQ(passwords.For(devices[1]), "") << "another device's line is no password";
  EXPECT_EQ(passwords.Read("a:b"), "");
  EXPECT_EQ(passwords.For(devices[0]), "a:b") << "an old file: its one line is the password";
  EXPECT_NE(passwords.Read("seventeen letters"), "");
}

}  // namespace
}  // namespace media_adapter::cli

// A random history of a volume: files put, overwritten and deleted, folders made, names of every kind. After every
// step the volume is what a plain model says, by the judgement of fsck.fat, of mtools and of the library itself.
// MEDIA_ADAPTER_SEED=n replays one seed.
#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

constexpr size_t kSteps = 63;  // for each of eight volumes

std::string Key(std::string path) {
  for (char& c : path) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return path;
}
std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('\\')); }
std::string NameIn(const std::string& path) { return path.substr(path.rfind('\\') + 1); }

// Since 1970, as far as a volume tells them.
template <class Moment>
int64_t Seconds(const Moment& at) {
  const auto day = std::chrono::year(at.year) / std::chrono::month(at.month) / std::chrono::day(at.day);
  return std::chrono::sys_days(day).time_since_epoch() / 1s + at.hour * 3600 + at.minute * 60 + at.second / 2 * 2;
}

struct Item {
  std::string attributes;  // letters; D is a folder
  size_t size;
  int64_t modified;
  Bytes content = {};     // not in a listing
  std::string path = {};  // as it is spelled
  auto operator<=>(const Item&) const = default;
};
using Tree = std::map<std::string, Item>;
void PrintTo(const Item& item, std::ostream* out) {
  *out << item.attributes << ' ' << item.size << ' ' << item.modified;
}

class HistoryTest : public WritingTest, public ::testing::WithParamInterface<VolumeShape> {
 protected:
  // Not the distributions of a standard library: a seed is to mean the same everywhere.
  size_t Below(size_t limit) { return random_() % limit; }
  // Few different names, so that they meet again.
  std::string Name() {
    const Strings names = Split(
        "PLAIN#.TXT|lower#.txt|BASE#.low|MiXed#.Txt|noext#|two words #.document| leading#|a.b.c.#|..two#|+,;=[]#.x|"
        ".profile#|thirteenchr#x|fourteen char#|twenty-six characters in #|\345e#|\345 long name #|(~!$%&'@^`{}-_)#",
        '|');
    std::string name = Below(9) == 0 ? "#" + std::string(254, 'w') : names[Below(names.size())];
    name.replace(name.find('#'), 1, 1, static_cast<char>('0' + Below(5)));
    return Below(4) == 0 ? Key(name) : name;
  }

  void Step() {
    world.localTime.second = static_cast<uint8_t>(Below(60));
    Strings folders = {""}, paths;
    for (const auto& [key, item] : model_) {
      paths.push_back(item.path);
      if (item.attributes == "D") folders.push_back(item.path);
    }
    std::string path = folders[Below(folders.size())] + "\\" + Name();
    const size_t kind = Below(10);
    if (kind < 5 && !paths.empty()) path = paths[Below(paths.size())];  // what is there already
    const bool isFolderToMake = kind == 4 || kind == 5;
    if (path.size() > 259 || (isFolderToMake && NameIn(path)[0] == ' ')) return Step();
    SCOPED_TRACE(path);
    const bool isThere = model_.contains(Key(path)), isFolder = isThere && model_[Key(path)].attributes == "D";
    if (isFolderToMake) {
      const uint32_t expected = path.find('\345') != std::string::npos ? 244 : isThere ? 236 : 0;
      ASSERT_EQ(MakeFolder(path), expected);
      if (expected == 0) model_[Key(path)] = {"D", 0, Seconds(world.localTime), {}, path};
    } else if (kind < 2) {
      ASSERT_EQ(Delete(path), isFolder ? 241U : isThere ? 0U : 244U);
      if (!isFolder) model_.erase(Key(path));
    } else {
      PutOne(Below(3) == 0 ? FolderOf(path) + "\\" + Key(NameIn(path)) : path, isFolder);
    }
  }
  void PutOne(const std::string& path, bool isFolder) {
    const size_t cluster = GetParam().sectorsPerCluster * 512;
    const size_t sizes[] = {0, 0, 1, 511, 512, 513, cluster - 1, cluster, cluster + 1, 3 * cluster + 7, Below(30000)};
    const std::string name = NameIn(path);
    Item item{"A", sizes[Below(std::size(sizes))], 2 * static_cast<int64_t>(500000000 + Below(500000000))};
    item.content = Pattern(item.size, static_cast<uint32_t>(Below(100)));
    MakeLocal(name, item.content, item.modified + 1);
    if (name[0] == '.') item.attributes += "H";
    if (Below(5) == 0) {
      item.attributes += "R";
      std::filesystem::permissions("u/" + name, std::filesystem::perms::owner_read);
    }
    ASSERT_EQ(PutLocal(name, FolderOf(path) + "\\"), isFolder ? 240U : 0U);
    if (isFolder) return;
    ASSERT_TRUE(Get(path) == item.content);
    item.path = model_.contains(Key(path)) ? model_[Key(path)].path : path;
    model_[Key(path)] = item;
  }

  Tree ByLibrary() {
    Tree tree;
    Strings folders = {""};
    for (size_t i = 0; i < folders.size(); ++i) {
      const auto* listing = Read(folders[i] + "\\");
      EXPECT_EQ(listing->status, 0U) << folders[i];
      for (const ListingEntry& row : std::span(listing->entries, listing->entryCount)) {
        const std::string path = folders[i] + "\\" + row.name;
        if (path.ends_with("\\.") || path.ends_with("\\..")) continue;
        Item& item = tree[path] = {"", row.size, Seconds(row)};
        for (size_t k = 0; k < 6; ++k) item.attributes.append((row.attributes << k & 0x20) != 0, "AD?SHR"[k]);
        if (item.attributes == "D") folders.push_back(path);
      }
    }
    return tree;
  }
  // A path as mtools spells it: a long name in Latin-1, a short one in code page 850. Folders are plain.
  static std::string Foreign(std::string path) {
    const bool isLong = NameIn(path).find(' ') != std::string::npos;
    std::ranges::replace(path, '\\', '/');
    const size_t at = path.find('\345');
    return at == std::string::npos ? path : path.replace(at, 1, isLong ? "\xC3\xA5" : "\xC3\x95");
  }
  void Judge() {
    ASSERT_EQ(FsckComplaints(Volume(), GetParam().partitionStart), Strings{});
    Tree own, foreign, byMtools;
    for (const auto& [key, item] : model_) {
      const bool isFolder = item.attributes == "D";
      own[item.path] = {item.attributes, item.size, item.modified};
      foreign[Foreign(item.path)] = {item.attributes, item.size, isFolder ? 0 : item.modified, item.content};
    }
    ASSERT_EQ(ByLibrary(), own);
    for (auto& [path, item] : ReadTree(Volume(), GetParam().partitionStart)) {
      byMtools[path] = {item.isFolder ? "D" : item.attributes, item.content.size(), item.isFolder ? 0 : item.modified,
                        item.content};
    }
    ASSERT_EQ(byMtools, foreign);
  }

  std::mt19937_64 random_;
  Tree model_;  // by Key
};

TEST_P(HistoryTest, LeavesWhatTheModelSays) {
  const char* text = std::getenv("MEDIA_ADAPTER_SEED");
  const uint64_t seed = text != nullptr ? std::strtoull(text, nullptr, 10) : 1;
  random_.seed(seed);
  Insert(Made(GetParam()));
  for (size_t step = 1; step <= kSteps && !HasFatalFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step) + "; replay with MEDIA_ADAPTER_SEED=" + std::to_string(seed));
    Step();
    if (!HasFatalFailure()) Judge();
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, HistoryTest,
                         ::testing::Values(VolumeShape{16, 1}, VolumeShape{16, 2, 0, 1, 63}, VolumeShape{16, 8},
                                           VolumeShape{16, 64}, VolumeShape{32, 1}, VolumeShape{32, 2},
                                           VolumeShape{32, 8, 0, 1, 2048}, VolumeShape{32, 64}));

}  // namespace
}  // namespace media_adapter::sim

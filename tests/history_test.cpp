// A random history of a volume: files put, overwritten and deleted, folders made, names of every kind. After every
// step the volume is what a plain model says, by the judgement of fsck.fat, of mtools and of the library itself.
// MEDIA_ADAPTER_SEED=n replays one seed.
#include <ranges>
#include "tests/support/volume_checks.h"

namespace media_adapter::sim {
namespace {

constexpr size_t kSteps = 63;            // for each of eight volumes
constexpr char kKept[] = "\\ALWAYS";  // a root without any file is none to mattrib

std::string Key(const std::string& path) {
  std::string key = path;
  for (char& c : key) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return key;
}

// Since 1970, as far as a volume tells them.
template <class Moment>
int64_t Seconds(const Moment& moment) {
  const std::chrono::year_month_day date{std::chrono::year(moment.year), std::chrono::month(moment.month),
                                         std::chrono::day(moment.day)};
  return std::chrono::sys_days(date).time_since_epoch() / 1s + moment.hour * 3600 + moment.minute * 60 +
         moment.second / 2 * 2;
}

class HistoryTest : public WritingTest, public ::testing::WithParamInterface<VolumeShape> {
 protected:
  HistoryTest() : WritingTest(1) {
    if (const char* text = std::getenv("MEDIA_ADAPTER_SEED")) seed_ = std::strtoull(text, nullptr, 10);
    random_.seed(seed_);
  }

  size_t Below(size_t limit) { return random_() % limit; }
  template <class Items>
  auto Pick(const Items& items) {
    return *std::next(std::begin(items), static_cast<std::ptrdiff_t>(Below(std::size(items))));
  }

  // Few different names, so that they meet again.
  std::string Name() {
    const std::string n = std::to_string(Below(12));
    std::string name = Pick(std::vector<std::string>{
        "PLAIN" + n + ".TXT", "lower" + n + ".txt", "BASE" + n + ".low", "MiXed" + n + ".Txt", "noext" + n,
        "two words " + n + ".document", " leading" + n, "a.b.c." + n, "..two" + n, "+,;=[]" + n + ".x", ".profile" + n,
        "thirteenchr" + n + "x", "fourteen char" + n, "\xE5" "e" + n, "\xE5 long name " + n, "(~!#$%&'@^`{}-_)" + n,
        std::string(25, 'm') + n, n + std::string(254, 'w')}).substr(0, 255);
    if (Below(4) == 0) name = Key(name);
    return name;
  }

  struct Item {
    bool isFolder;
    Bytes content;
    uint8_t attributes;
    int64_t modified;
    std::string path;  // as it is spelled
  };
  std::string Folder() {
    std::vector<std::string> folders = {""};
    for (const auto& [key, item] : model_) if (item.isFolder) folders.push_back(item.path);
    return Pick(folders);
  }
  Item* Find(const std::string& path) {
    const auto found = model_.find(Key(path));
    return found == model_.end() ? nullptr : &found->second;
  }

  void PutOne(const std::string& folder, const std::string& name) {
    const size_t cluster = GetParam().sectorsPerCluster * 512;
    const size_t size = Pick(std::vector<size_t>{0, 0, 1, 511, 512, 513, cluster - 1, cluster, cluster + 1,
                                                 3 * cluster + 7, Below(30000)});
    const Bytes content = Pattern(size, static_cast<uint32_t>(Below(1000)));
    const int64_t modified = 1000000000 + static_cast<int64_t>(Below(1000000000));
    MakeLocal(name, content, modified);
    const bool isReadOnly = Below(5) == 0;
    if (isReadOnly) std::filesystem::permissions("u/" + name, std::filesystem::perms::owner_read);
    Item* old = Find(folder + "\\" + name);
    const uint32_t status = PutLocal(name, folder.empty() ? "\\" : folder);
    ASSERT_EQ(status, old != nullptr && old->isFolder ? 240U : 0U);
    if (status != 0) return;
    const int hidden = name[0] == '.' ? 0x02 : 0;
    const auto attributes = static_cast<uint8_t>(0x20 | hidden | (isReadOnly ? 0x01 : 0));
    const std::string path = old != nullptr ? old->path : folder + "\\" + name;
    model_[Key(path)] = {false, content, attributes, modified & ~1LL, path};
    ASSERT_TRUE(Get(path) == content);
  }
  void MakeOne(const std::string& folder, const std::string& name) {
    const size_t first = name.find_first_not_of(' ');
    const std::string path = folder + "\\" + name.substr(first);
    const bool isBad = name.find('\xE5') != std::string::npos;
    const uint32_t status = MakeFolder(folder + "\\" + name);
    ASSERT_EQ(status, isBad ? 244U : Find(path) != nullptr ? 236U : 0U);
    if (status == 0) model_[Key(path)] = {true, {}, 0x10, Seconds(world.localTime), path};
  }
  void DeleteOne(const std::string& path) {
    const Item* item = Find(path);
    const uint32_t expected = item == nullptr ? 244 : item->isFolder ? 241 : 0;
    ASSERT_EQ(Delete(path), expected);
    if (expected == 0) model_.erase(Key(path));
  }
  void Step() {
    world.localTime.minute = static_cast<decltype(world.localTime.minute)>(Below(60));
    world.localTime.second = static_cast<decltype(world.localTime.second)>(Below(60));
    const std::string folder = Folder();
    const std::string name = Name();
    const size_t kind = Below(100);
    const bool isKnown = !model_.empty() && kind >= 70;
    const std::string path = isKnown ? Pick(model_).second.path : folder + "\\" + name;
    if (path.size() > 259 || path == kKept) return Step();
    SCOPED_TRACE(path);
    if (kind < 15) return MakeOne(folder, name);
    if (kind < 65) return PutOne(folder, name);
    if (kind < 85) return DeleteOne(path);
    PutOne(path.substr(0, path.rfind('\\')), path.substr(path.rfind('\\') + 1));  // over what is there
  }

  void CheckByLibrary() {
    std::map<std::string, size_t> counts = {{"", 0}};
    for (const auto& [key, item] : model_) {
      ++counts[item.path.substr(0, item.path.rfind('\\'))];
      if (item.isFolder) counts[item.path] += 2;
    }
    for (const auto& [folder, count] : counts) {
      const auto* listing = Read(folder + "\\");
      ASSERT_EQ(listing->status, 0U) << folder;
      ASSERT_EQ(listing->entryCount, count) << folder;
      for (const auto& row : std::span(listing->entries, count)) {
        const std::string name = row.name;
        if (name == "." || name == "..") continue;
        const Item* item = Find(folder + "\\" + name);
        ASSERT_TRUE(item != nullptr && item->path == folder + "\\" + name) << name;
        ASSERT_EQ(std::tuple(row.attributes, row.size, Seconds(row)),
                  std::tuple(item->attributes, item->content.size(), item->modified)) << name;
      }
    }
  }
  // A path as mtools spells it: a long name in Latin-1, a short one in code page 850. Folders are plain.
  static std::string Foreign(std::string path) {
    const bool isLong = path.find(' ', path.rfind('\\')) != std::string::npos;
    std::ranges::replace(path, '\\', '/');
    const size_t at = path.find('\xE5');
    return at == std::string::npos ? path : path.replace(at, 1, isLong ? "\xC3\xA5" : "\xC3\x95");
  }
  void CheckByMtools() {
    const auto tree = ReadTree(Volume(), GetParam().partitionStart);
    ASSERT_EQ(tree.size(), model_.size());
    for (const auto& [key, item] : model_) {
      const auto found = tree.find(Foreign(item.path));
      ASSERT_TRUE(found != tree.end()) << Foreign(item.path) << " " << ::testing::PrintToString(std::vector<std::string>{std::views::keys(tree).begin(), std::views::keys(tree).end()});
      ASSERT_EQ(found->second.isFolder, item.isFolder) << item.path;
      if (item.isFolder) continue;
      ASSERT_TRUE(found->second.content == item.content) << item.path;
      ASSERT_EQ(found->second.modified, item.modified) << item.path;
      std::string attributes;
      if (item.attributes & 0x20) attributes += "A";
      if (item.attributes & 0x02) attributes += "H";
      if (item.attributes & 0x01) attributes += "R";
      ASSERT_EQ(found->second.attributes, attributes) << item.path;
    }
  }

  uint64_t seed_ = 1;

 private:
  std::mt19937_64 random_;
  std::map<std::string, Item> model_;
};

TEST_P(HistoryTest, LeavesWhatTheModelSays) {
  SCOPED_TRACE("replay with MEDIA_ADAPTER_SEED=" + std::to_string(seed_));
  Insert(VolumeBuilder(GetParam()).Build());
  PutOne("", &kKept[1]);
  for (size_t step = 1; step <= kSteps && !HasFatalFailure(); ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    Step();
    if (HasFatalFailure()) break;
    ASSERT_EQ(Complaints(GetParam().partitionStart), "");
    CheckByLibrary();
    CheckByMtools();
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, HistoryTest,
                         ::testing::Values(VolumeShape{16, 1}, VolumeShape{16, 2, 0, 1, 63}, VolumeShape{16, 8},
                                           VolumeShape{16, 64}, VolumeShape{32, 1}, VolumeShape{32, 2},
                                           VolumeShape{32, 8, 0, 1, 2048}, VolumeShape{32, 64}),
                         [](const auto& row) {
                           return "Fat" + std::to_string(row.param.fatBits) + "Cluster" +
                                  std::to_string(row.param.sectorsPerCluster);
                         });

}  // namespace
}  // namespace media_adapter::sim

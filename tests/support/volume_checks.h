// For the tests of volumes and files: a volume's bytes by their meaning, to look at or to forge, and what requests an
// operation made, as a line of text. Knows the FAT format by itself; nothing here comes from the library.
#pragma once

#include "tests/support/library_fixture.h"

namespace media_adapter::sim {

using Slot = std::span<uint8_t>;
using Strings = std::vector<std::string>;

// The offsets that tests use: in a boot sector, and in a slot of a directory.
namespace boot {
inline constexpr size_t kSectorsPerCluster = 13, kReserved = 14, kFats = 16, kRootEntries = 17, kTotal16 = 19,
                        kFatSize16 = 22, kTotal32 = 32, kFatSize32 = 36, kRootCluster = 44, kPartitionStart = 454,
                        kSignature = 510;
}
namespace slot {
inline constexpr size_t kAttributes = 11, kCaseFlags = 12, kCreationDate = 16, kAccessDate = 18, kClusterHigh = 20,
                        kWriteDate = 24, kClusterLow = 26, kSize = 28, kLength = 32;
inline constexpr uint8_t kDeleted = 0xE5, kLongName = 0x0F, kFolder = 0x10, kFile = 0x20;
}  // namespace slot

// A volume's bytes by their meaning, in the partition that the first sector tells of or without one.
class VolumeView {
 public:
  explicit VolumeView(VolumeImage& image) : image_(image) {
    const uint32_t start = ReadU32(image.At(0), boot::kPartitionStart);
    const auto& bytes = image.At(start);
    is32 = ReadU16(bytes, boot::kFatSize16) == 0;
    sectorsPerCluster = std::max<uint32_t>(bytes[boot::kSectorsPerCluster], 1);
    fat = start + ReadU16(bytes, boot::kReserved);
    const uint32_t fatSectors = is32 ? ReadU32(bytes, boot::kFatSize32) : ReadU16(bytes, boot::kFatSize16);
    secondFat_ = fat + fatSectors;
    root = fat + bytes[boot::kFats] * fatSectors;
    data = root + (ReadU16(bytes, boot::kRootEntries) + 15U) / 16;
    const uint32_t total = ReadU16(bytes, boot::kTotal16);
    lastCluster = (start + (total != 0 ? total : ReadU32(bytes, boot::kTotal32)) - data) / sectorsPerCluster + 1;
  }

  // s0 (reserved), fat3, other0 (another FAT), root1 (the fixed root), c5.0 (the first sector of cluster 5)
  std::string Place(uint32_t sector) const {
    if (sector < fat) return "s" + std::to_string(sector);
    if (sector < secondFat_) return "fat" + std::to_string(sector - fat);
    if (sector < root) return "other" + std::to_string(sector - secondFat_);
    if (sector < data) return "root" + std::to_string(sector - root);
    sector -= data;
    return "c" + std::to_string(2 + sector / sectorsPerCluster) + "." + std::to_string(sector % sectorsPerCluster);
  }

  uint32_t Link(uint32_t cluster) const { return is32 ? ReadU32(LinkOf(cluster), 0) : ReadU16(LinkOf(cluster), 0); }
  void SetLink(uint32_t cluster, size_t value) const {
    WriteU16(LinkOf(cluster), 0, static_cast<uint16_t>(value));
    if (is32) WriteU16(LinkOf(cluster), 2, static_cast<uint16_t>(value >> 16));
  }

  uint32_t SectorOf(uint32_t cluster) const { return data + (cluster - 2) * sectorsPerCluster; }
  // The slots of a directory in order; 0 is the root.
  std::vector<Slot> Slots(uint32_t cluster = 0) const {
    std::vector<Slot> slots;
    const auto add = [&](uint32_t first, uint32_t count) {
      for (uint32_t i = 0; i < count * 16; ++i) slots.push_back(At(first + i / 16, i % 16 * 32).first(32));
    };
    if (cluster == 0) add(root, data - root);
    for (cluster = cluster == 0 && is32 ? 2 : cluster; cluster >= 2 && cluster <= lastCluster;
         cluster = Link(cluster) & 0x0FFFFFFF) {
      add(SectorOf(cluster), sectorsPerCluster);
    }
    return slots;
  }
  // The short entries of a directory by the 11 characters of their names.
  std::map<std::string, Slot> Entries(uint32_t cluster = 0) const {
    std::map<std::string, Slot> entries;
    for (const Slot entry : Slots(cluster)) {
      if (entry[0] != 0 && entry[0] != slot::kDeleted && entry[slot::kAttributes] != slot::kLongName) {
        entries[{entry.begin(), entry.begin() + 11}] = entry;
      }
    }
    return entries;
  }

  bool is32;
  uint32_t sectorsPerCluster, lastCluster;
  uint32_t fat, root, data;  // first sectors; a FAT32 volume's root is a chain and has none

 private:
  Slot At(uint32_t sector, uint32_t offset) const { return Slot(image_.At(sector)).subspan(offset); }
  Slot LinkOf(uint32_t cluster) const {
    const uint32_t offset = cluster * (is32 ? 4 : 2);
    return At(fat + offset / 512, offset % 512);
  }
  VolumeImage& image_;
  uint32_t secondFat_;
};

inline Strings Split(const std::string& text, char separator) {
  Strings parts(1);
  for (const char c : text) c == separator ? parts.emplace_back() : parts.back() += c;
  return parts;
}
// A volume by mkfs.fat and mtools. In their order: "/Folder|/Folder/FILE:size|-/Folder/FILE", the last deletes.
inline VolumeImage Made(const VolumeShape& shape, const std::string& items = {}) {
  VolumeBuilder builder(shape);
  for (const auto& item : Split(items, '|')) {
    const Strings parts = Split(item, ':');
    if (parts.size() == 2) builder.AddFile(parts[0], Pattern(std::stoul(parts[1])));
    if (parts.size() == 1 && item[0] == '-') builder.Delete(item.substr(1));
    if (parts.size() == 1 && item[0] == '/') builder.AddFolder(item);
  }
  return builder.Build();
}
// Items: empty files of numbered names.
inline std::string Numbered(const std::string& path, int first, int last) {
  const std::string item = "|" + path + std::to_string(first) + ":0";
  return first == last ? item : item + Numbered(path, first + 1, last);
}
inline Bytes Copy(std::span<const uint8_t> slot) { return {slot.begin(), slot.end()}; }
inline uint32_t ClusterIn(std::span<const uint8_t> bytes) {
  return ReadU16(bytes, slot::kClusterHigh) * 0x10000U + ReadU16(bytes, slot::kClusterLow);
}

// The device's medium can be exchanged, and operations are one short call each. Local files lie in the current folder,
// in "u" to put and in "d" when read, so that their paths leave room for the longest names.
class WritingTest : public LibraryTest {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    tzset();
    LibraryTest::SetUp();
    for (const char* folder : {"u", "d"}) std::filesystem::create_directory(work_ / folder);
    std::filesystem::current_path(work_.Path());
    device_ = &AddDevice();
    AddDevice();  // without a volume
    Search();
  }
  void TearDown() override {
    world.fate = nullptr;
    std::filesystem::current_path("/");
    LibraryTest::TearDown();
  }

  VolumeImage& Volume() { return static_cast<VolumeImage&>(device_->Disk()); }
  VolumeView View() { return VolumeView(Volume()); }
  // Puts a medium into the device and lets the library mount it and list its root.
  uint32_t Mount(const VolumeImage& image) {
    Volume() = image;
    EXPECT_EQ(Read("\\", {}, nullptr, 1)->status, 248U);  // forgets what was mounted
    return Mark(), Read("\\")->status;
  }
  void Insert(const VolumeImage& image) { ASSERT_EQ(Mount(image), 0U); }

  // lastWrite: seconds since 1970.
  static void MakeLocal(const std::string& name, const Bytes& content, int64_t lastWrite = 1500000000) {
    std::filesystem::remove("u/" + name);
    WriteWholeFile("u/" + name, content);
    const std::chrono::sys_seconds time{std::chrono::seconds(lastWrite)};
    std::filesystem::last_write_time("u/" + name, std::chrono::file_clock::from_sys(time));
  }
  uint32_t PutLocal(const std::string& name, std::string folder = "\\") {
    Mark();
    const uint32_t status = API_RFAWriteData(("u/" + name).c_str(), folder.data(), 0, kPassword, 0)->status;
    folderText = folder.c_str();
    return status;
  }
  uint32_t Put(const std::string& name, const Bytes& content, const std::string& folder = "\\") {
    return MakeLocal(name, content), PutLocal(name, folder);
  }
  uint32_t MakeFolder(const std::string& path) {
    return Mark(), API_RFACreateDirectory(path.c_str(), 0, kPassword, 0)->status;
  }
  uint32_t Delete(const std::string& path) { return Mark(), API_RFADelete(path.c_str(), 0, kPassword, 0)->status; }
  uint32_t Format() { return Mark(), API_RFAFormat(0, kPassword, 0)->status; }
  // The file's bytes as the library reads them; none when it fails.
  std::optional<Bytes> Get(const std::string& path) {
    if (Read(path, "d")->status != 0) return std::nullopt;
    return ReadWholeFile("d/" + path.substr(path.rfind('\\') + 1));
  }
  bool Wrote() const { return !Sent(Command::RFAWriteData).empty(); }

  // Requests since the mark, resends left out.
  std::vector<Datagram> Requests() const {
    std::vector<Datagram> requests;
    for (const auto& sent : Sent()) {
      if (requests.empty() || requests.back() != sent.bytes) requests.push_back(sent.bytes);
    }
    return requests;
  }
  // A status and the requests behind it: "0 r:root0 w:c2.0-c2.3 ww:fat1-fat5" reads and writes of one sector and writes
  // of two. A run of consecutive ones is one item; the connection at the start goes without saying.
  std::string Trace(uint32_t status) {
    std::string text = std::to_string(status), openKind, end;
    uint32_t next = 0;
    for (const Datagram& bytes : Requests()) {
      if (bytes.size() == wire::kHeaderSize) continue;
      const uint32_t sector = ReadU32(bytes, 48), count = ReadU16(bytes, 56);
      const bool isRead = CommandOf(bytes) == static_cast<uint8_t>(Command::RFAReadData);
      const std::string kind = " " + std::string(count, isRead ? 'r' : 'w') + ":";
      const bool goesOn = kind == openKind && sector == next;
      text += goesOn ? "" : std::exchange(end, {}) + kind + View().Place(sector);
      if (goesOn) end = "-" + View().Place(sector);
      openKind = kind;
      next = sector + count;
    }
    return text + end;
  }

  simulator::DeviceModel* device_ = nullptr;

 private:
  TempFolder work_;
};

}  // namespace media_adapter::sim

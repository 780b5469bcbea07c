// For the tests of volumes and files: volumes in a line of text, operations that are one short call each, and what
// requests an operation made, as a line of text.
#pragma once

#include "tests/support/library_fixture.h"
#include "tests/support/volume_view.h"

namespace media_adapter::sim {

// Items: empty files of numbered names.
inline std::string Numbered(const std::string& path, int first, int last) {
  const std::string item = "|" + path + std::to_string(first) + ":0";
  return first == last ? item : item + Numbered(path, first + 1, last);
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
    SetLastWrite("u/" + name, lastWrite);
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

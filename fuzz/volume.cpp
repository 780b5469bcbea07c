// What a hostile volume can hold and a lying device can answer. The input changes bytes of a sound volume, plans the
// device's faults, and picks the requests. The disk judges every write; what a device that does not lie took must be
// there at once.
#include <algorithm>

#include "api/result_blocks.h"
#include "fuzz/watched_disk.h"

namespace media_adapter::fuzz {
namespace {

constexpr int kMaxPatches = 16;
constexpr int kMaxFaults = 8;
constexpr int kMaxRequests = 10;

// Exchanges of an input. Walks are long: a looping folder has 4096 sectors, each with a look at the FAT. Few inputs see
// them to their end.
constexpr std::array<uint32_t, 8> kBudgets = {200, 200, 200, 200, 400, 400, 1000, 3000};
constexpr uint32_t kLongBudget = 60000;
constexpr uint32_t kLongestWalk = 2 * 4096;
constexpr uint32_t kMaxAliases = 99;
constexpr std::chrono::seconds kMaxStandstill{100};
constexpr std::array<uint32_t, 4> kLatencies = {1, 1, 100, 1900};  // there and back, milliseconds

const std::array<std::string, 5> kFolders = {"", "\\A", "\\A\\B", "\\A\\..", "\\A\\new folder"};
const std::array<std::string, 8> kNames = {"F.BIN",      "Read me long.txt", "B",   "new folder",
                                           "short.name", "README~1.TXT",     "abc", std::string(100, 'x') + ".long"};
constexpr std::array<uint32_t, 8> kSizes = {0, 1, 512, 513, 1500, 4096, 9000, 20000};

class Volume {
 public:
  explicit Volume(std::span<const uint8_t> bytes) : input_(bytes) {
    disk_.drops = [this] { return faults_.DropsWrite(); };
    LimitDevice();
    for (size_t i = input_.Below(kMaxPatches + 1); i > 0; --i) Patch();
    disk_.TakeGeometry();
    for (size_t i = input_.Below(kMaxFaults + 1); i > 0; --i) {
      const size_t after = input_.Below(256);
      faults_.Plan(after, static_cast<Faults::Kind>(input_.Below(Faults::kKinds)));
    }
  }

  void RunRequests() {
    for (int i = 0; i < kMaxRequests && !input_.IsAtEnd(); ++i) RunRequest();
  }

 private:
  simulator::DeviceModel& MakeDevice() {
    constexpr std::array<uint8_t, 4> kClusterSizes = {1, 2, 3, 8};
    const bool is32 = (choice_ & 1) != 0;
    auto disk = std::make_unique<Disk>(sim::Boot{.sectorsPerCluster = kClusterSizes.at(choice_ >> 3 & 3),
                                                 .reserved = 2,
                                                 .fats = static_cast<uint8_t>(1 + (choice_ >> 5 & 1)),
                                                 .rootEntries = static_cast<uint16_t>(is32 ? 0 : 64),
                                                 .clusters = is32 ? 65525U : 4085U,
                                                 .in32Bits = is32,
                                                 .start = (choice_ & 64) != 0 ? 5U : 0U,
                                                 // of a long FAT32 for all clusters, otherwise for the first 512
                                                 .fatSectors = !is32                ? 16U
                                                               : (choice_ & 6) == 6 ? 512U
                                                                                    : 4U});
    const simulator::DeviceIdentity identity{kDevice.address, kDeviceMac, "device", ""};
    return world_.network.Attach(std::make_unique<simulator::DeviceModel>(identity, std::move(disk)));
  }

  // How long it lives, and what it tells of its size.
  void LimitDevice() {
    const size_t more = input_.Below(256);
    const auto end = static_cast<uint32_t>(disk_.Volume().end);
    world_.network.latency = std::chrono::microseconds(500 * kLatencies.at(more >> 3 & 3));
    // As large as the volume; larger; smaller, so that walks along all clusters are short; or anything.
    const std::array<uint32_t, 4> lastSectors = {
        end - 1, end + 1000, static_cast<uint32_t>(disk_.SectorOf(40)),
        static_cast<uint32_t>((more >> 6) == 3 ? input_.Below(1ULL << 32) : 0)};
    const bool isPatient = (choice_ & 128) != 0 && (more & 7) == 7;
    faults_.lastSector = lastSectors.at(more >> 6);
    faults_.LimitRequests(isPatient ? kLongBudget : kBudgets.at(more & 7));
  }

  // Lays bytes of the input, or one byte many times, over a sector that matters.
  void Patch() {
    const size_t place = input_.Below(256);
    const Geometry& volume = disk_.Volume();
    const std::array<uint64_t, 8> sectors = {volume.boot,
                                             volume.fat,
                                             volume.fat + 1,
                                             volume.isFat32 ? volume.data : volume.root,
                                             disk_.SectorOf(kFolderA),
                                             disk_.SectorOf(kFolderB),
                                             0,
                                             volume.fat + input_.Below(16)};
    Sector& sector = disk_.At(sectors.at(place & 7));
    size_t offset = input_.Below(0x10000) % sector.size();
    if ((place & 7) == 0) offset = 11 + offset % 40;
    if ((place & 7) == 6) offset = 454 + offset % 4;
    patchesFolders_ |= (place & 7) >= 3 && (place & 7) <= 5;
    const auto rest = std::span(sector).subspan(offset);
    const size_t count = input_.Below(256);
    if ((place & 128) != 0) {
      std::ranges::fill(rest.first(std::min<size_t>(rest.size(), count * 4)), static_cast<uint8_t>(input_.Below(256)));
    } else {
      std::ranges::copy(input_.Bytes(std::min<size_t>(rest.size(), count % 65)), rest.begin());
    }
  }

  // Of a request: its walks through folders, a look and a write for each cluster, and what is left.
  uint64_t MaxExchanges(RequestId id, const std::string& path) const {
    const bool makesName = id == RequestId::RFAWriteData || id == RequestId::RFACreateDirectory;
    const auto walks = static_cast<uint64_t>(std::ranges::count(path, '\\') + (makesName ? 2 + kMaxAliases : 1));
    return walks * kLongestWalk + 2 * disk_.Volume().lastCluster + 2000;
  }

  uint32_t Run(RequestId id, const std::string& devicePath, const std::string& localPath) {
    RequestRecord record;
    record.id = id;
    record.devicePath = devicePath;
    record.localPath = localPath;
    disk_.BeginRequest(id);
    const uint32_t sentBefore = world_.Sent();
    world_.Run(std::move(record));
    if (world_.Sent() - sentBefore > MaxExchanges(id, devicePath)) Breach("a request walks for ever");
    const uint32_t status = id == RequestId::RFAReadData ? readDataResult.status : statusResult.status;
    if (!world_.IsExplained(status) && !faults_.Explain(status)) Breach("a status that nobody sent", status);
    if (status == 0 && !faults_.HasLies()) disk_.EndOfGoodRequest();
    return status;
  }

  // Nothing keeps the library from finding what it has just stored.
  bool IsPlain() const { return disk_.Volume().isSound && !faults_.HasLies() && !faults_.IsSilent(); }

  void RunRequest() {
    const size_t choice = input_.Below(256), place = input_.Below(256);
    const std::string& folder = kFolders.at(place % kFolders.size());
    const std::string& name = kNames.at(choice >> 3 & 7);
    const std::string path = folder + "\\" + name;
    const size_t kind = choice & 7;
    if (kind == 0) Run(RequestId::RFAReadData, (choice & 8) != 0 ? folder + "\\" : folder, in_);
    if (kind == 1) Run(RequestId::RFAReadData, path, in_);
    if (kind == 2) Delete(path);
    if (kind == 3) MakeFolder(path);
    if (kind == 4 && (place & 0xC0) == 0xC0) Format();
    if (kind > 4) Put(folder, name, kSizes.at(place >> 5));
  }

  void Put(const std::string& folder, const std::string& name, uint32_t size) {
    sim::Bytes file(size);
    for (size_t i = 0; i < file.size(); ++i) file[i] = static_cast<uint8_t>(i * 31 + i / 251 + size);
    const std::string local = LocalFiles() / name;
    sim::WriteWholeFile(local, file);
    if (Run(RequestId::RFAWriteData, folder + "\\", local) != 0) return;
    const uint32_t status = Run(RequestId::RFAReadData, folder + "\\" + name, in_);
    if (!IsPlain()) return;
    if (status != 0 && !faults_.HasFaults()) Breach("what was put is not found", status);
    if (status == 0 && sim::ReadWholeFile(in_ + "/" + name) != file)
      Breach("what was put is read back otherwise", size);
  }

  void Delete(const std::string& path) {
    if (Run(RequestId::RFADelete, path, "") != 0) return;
    const uint32_t status = Run(RequestId::RFAReadData, path, in_);
    if (IsPlain() && status == 0 && !patchesFolders_) Breach("what was deleted is found");
  }

  void MakeFolder(const std::string& path) {
    if (Run(RequestId::RFACreateDirectory, path, "") != 0) return;
    const uint32_t status = Run(RequestId::RFAReadData, path, in_);
    if (!IsPlain() || patchesFolders_) return;
    if (status != 0 && !faults_.HasFaults()) Breach("a new folder is not found", status);
    if (status == 0 && readDataResult.entryCount != 2) Breach("a new folder is not empty", readDataResult.entryCount);
  }

  void Format() {
    if (Run(RequestId::RFAFormat, "", "") != 0) return;
    const uint32_t status = Run(RequestId::RFAReadData, "\\", in_);
    if (!IsPlain()) return;
    if (status != 0 && !faults_.HasFaults()) Breach("a formatted volume is not listed", status);
    if (status == 0 && readDataResult.entryCount != 0) Breach("a formatted volume is not empty");
  }

  Fate Touch(const LoggedDatagram& datagram) {
    Fate fate = faults_.Touch(datagram);
    JudgeStream(datagram.fromLibrary ? datagram.bytes : fate.bytes.value_or(datagram.bytes), fate);
    return fate;
  }

  // A stream whose packets are none but old ones comes to its end.
  void JudgeStream(const Datagram& bytes, const Fate& fate) {
    const auto command = static_cast<wire::Command>(bytes.size() > wire::kHeaderSize ? bytes[wire::kCommandOffset] : 0);
    const bool isNew = command == wire::Command::TransferData && fate.copies != 0 &&
                       sentPackets_.insert(ReadU16(bytes, wire::kSequenceOffset) & wire::kMaxPacketNumber).second;
    if (command == wire::Command::RFAStartTransfer) sentPackets_.clear();
    if (isNew || command == wire::Command::RFAStartTransfer) lastNewPacket_ = world_.network.Now();
    const bool goesOn = command == wire::Command::TransferAcknowledgement;
    if (goesOn && world_.network.Now() - lastNewPacket_ > kMaxStandstill) Breach("a stream that stands still goes on");
  }

  const std::string in_ = LocalFiles().Path().string();  // where files are read into, and written from
  Choices input_;
  World world_{[this](const LoggedDatagram& datagram) { return Touch(datagram); }};
  const size_t choice_ = input_.Below(256);
  simulator::DeviceModel& device_ = MakeDevice();
  Disk& disk_ = static_cast<Disk&>(device_.Disk());
  Faults faults_{world_.network, device_, input_};
  bool patchesFolders_ = false;
  std::set<int> sentPackets_;  // of the running stream, by number
  sim::Time lastNewPacket_{};
};

}  // namespace
}  // namespace media_adapter::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  media_adapter::fuzz::Volume({data, size}).RunRequests();
  return 0;
}

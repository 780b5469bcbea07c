// What a hostile volume can hold. The input is laid over the boot sector, the FAT, the root directory and the first
// clusters of a volume; then every file operation runs on it. Nothing may be written before the volume's FAT or behind
// its last sector.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>

#include "fuzz/fuzz_platform.h"
#include "protocol/little_endian.h"
#include "protocol/sector_access.h"
#include "simulator/device_model.h"
#include "tests/support/temp_folder.h"

namespace media_adapter::fuzz {
namespace {

using Sector = std::array<uint8_t, kSectorSize>;

constexpr uint32_t kSectors = 70000;
constexpr uint32_t kReserved = 4;
constexpr uint32_t kFatSectors = 64;
constexpr uint32_t kRootEntries = 64;
constexpr uint32_t kRootSector = kReserved + kFatSectors;
constexpr uint32_t kFirstData = kRootSector + kRootEntries / 16;
constexpr size_t kGeometryBytes = 8;  // of the boot sector that the input may change

// A sparse disk: sectors that nobody wrote are zero.
class SparseStorage : public simulator::Storage {
 public:
  uint32_t SectorCount() const override { return kSectors; }
  bool Read(uint32_t sector, std::span<uint8_t> out) override {
    for (size_t at = 0; at < out.size(); at += kSectorSize, ++sector) {
      std::ranges::copy(sectors_[sector], out.begin() + static_cast<std::ptrdiff_t>(at));
    }
    return true;
  }
  bool Write(uint32_t sector, std::span<const uint8_t> data) override {
    for (size_t at = 0; at < data.size(); at += kSectorSize, ++sector) {
      if (sector < lowestWritable) std::abort();
      std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(at), kSectorSize, sectors_[sector].begin());
    }
    return true;
  }
  Sector& At(uint32_t sector) { return sectors_[sector]; }

  uint32_t lowestWritable = kReserved;

 private:
  std::unordered_map<uint32_t, Sector> sectors_;
};

void Fill(SparseStorage& disk, Input& input) {
  Sector& boot = disk.At(0);
  boot[13] = 1;
  WriteU16(boot, 14, kReserved);
  boot[16] = 1;
  WriteU16(boot, 17, kRootEntries);
  WriteU16(boot, 22, kFatSectors);
  WriteU32(boot, 32, kReserved + kFatSectors + kRootEntries / 16 + 16000);
  WriteU16(boot, 510, 0xAA55);
  // Sometimes the geometry is hostile as well; then any sector may be taken for the FAT.
  if (input.Byte() % 8 == 0) {
    std::ranges::copy(input.Bytes(kGeometryBytes), boot.begin() + 13);
    disk.lowestWritable = 0;
  }
  for (const uint32_t sector : {kReserved, kRootSector, kFirstData, kFirstData + 1, kFirstData + 2}) {
    std::ranges::copy(input.Bytes(kSectorSize), disk.At(sector).begin());
  }
}

RequestRecord Request(RequestId id, const char* devicePath, const std::string& localPath) {
  RequestRecord record;
  record.id = id;
  record.devicePath = devicePath;
  record.localPath = localPath;
  return record;
}

void RunInput(std::span<const uint8_t> bytes) {
  Input input(bytes);
  auto disk = std::make_unique<SparseStorage>();
  Fill(*disk, input);
  simulator::DeviceIdentity identity{kDevice.address, kDeviceMac, "fuzz", ""};
  simulator::DeviceModel device(identity, std::move(disk));
  const auto take = [](const std::vector<simulator::Outgoing>& sent) {
    for (const auto& datagram : sent) network.incoming.push_back(datagram.bytes);
  };
  StartWithOneDevice();
  network.onSend = [&](std::span<const uint8_t> request) {
    take(device.OnDatagram(request, {{127, 0, 0, 1}, 50000}, network.now));
  };
  network.onTime = [&](std::chrono::nanoseconds now) {
    if (device.NextTime()) take(device.OnTime(std::max(now, *device.NextTime())));
  };
  static const sim::TempFolder localFolder;
  const std::string folder = localFolder.Path().string();
  const std::string file = localFolder / "A long name.txt";
  sim::WriteWholeFile(file, std::vector<uint8_t>(10));
  Run(Request(RequestId::RFAReadData, "\\", folder));
  Run(Request(RequestId::RFAReadData, "\\A", folder));
  Run(Request(RequestId::RFAReadData, "\\A\\B", folder));
  Run(Request(RequestId::RFAWriteData, "\\", file));
  Run(Request(RequestId::RFAWriteData, "\\A", file));
  Run(Request(RequestId::RFACreateDirectory, "\\A\\New folder", folder));
  Run(Request(RequestId::RFADelete, "\\A", folder));
  Run(Request(RequestId::RFADelete, "\\A long name.txt", folder));
  Run(Request(RequestId::RFAFormat, "", folder));
  Stop();
}

}  // namespace
}  // namespace media_adapter::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  media_adapter::fuzz::RunInput({data, size});
  return 0;
}

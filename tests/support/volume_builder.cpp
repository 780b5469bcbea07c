#include "tests/support/volume_builder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "protocol/little_endian.h"

namespace media_adapter::sim {
namespace {

// What it says, by lines. Throws when it fails, unless that is no news.
Strings RunTool(const Strings& command, bool mayFail = false) {
  std::string line = "MTOOLS_SKIP_CHECK=1 MTOOLSRC=/dev/null TZ=UTC exec", output;
  for (const auto& word : command) line += " '" + word + "'";  // none has quotes
  FILE* const tool = popen((line + " 2>&1 </dev/null").c_str(), "re");
  if (tool == nullptr) throw std::runtime_error("cannot run " + command[0]);
  char buffer[4096];
  while (const size_t count = fread(buffer, 1, sizeof(buffer), tool)) output.append(buffer, count);
  if (pclose(tool) != 0 && !mayFail) throw std::runtime_error(command[0] + ": " + output);
  return Split(output, '\n');
}

}  // namespace

// ---- VolumeImage

bool VolumeImage::Read(uint32_t sector, std::span<uint8_t> out) {
  for (; !out.empty(); out = out.subspan(kSectorSize), ++sector) {
    if (sector >= sectorCount_) return false;
    const Sectors& sectors = changed_.contains(sector) ? changed_ : *base_;
    const auto stored = sectors.find(sector);
    std::ranges::copy(stored != sectors.end() ? stored->second : Sector{}, out.begin());
  }
  return true;
}

VolumeImage::Sector& VolumeImage::At(uint32_t sector) {
  Sector now{};
  if (!Read(sector, now)) throw std::out_of_range("sector");
  return changed_.try_emplace(sector, now).first->second;
}

bool VolumeImage::Write(uint32_t sector, std::span<const uint8_t> data) {
  for (; !data.empty(); data = data.subspan(kSectorSize), ++sector) {
    if (sector >= sectorCount_) return false;
    std::ranges::copy(data.first(kSectorSize), changed_[sector].begin());
  }
  return true;
}

void VolumeImage::Load(const std::string& path, uint32_t firstSector) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat info {};
  if (file < 0 || fstat(file, &info) != 0) throw std::runtime_error("cannot open " + path);
  base_ = std::make_shared<Sectors>(*base_);
  Sector bytes{};
  off_t next = 0;
  while ((next = lseek(file, next, SEEK_DATA)) >= 0) {
    const off_t end = lseek(file, next, SEEK_HOLE);
    for (next -= next % kSectorSize; next < end; next += kSectorSize) {
      if (pread(file, bytes.data(), bytes.size(), next) != kSectorSize) throw std::runtime_error("cannot read " + path);
      if (std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; })) continue;
      base_->insert_or_assign(firstSector + static_cast<uint32_t>(next / kSectorSize), bytes);
    }
  }
  close(file);
  sectorCount_ = firstSector + static_cast<uint32_t>(info.st_size / kSectorSize);
}

void VolumeImage::Save(const std::string& path, uint32_t firstSector) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  bool good = file >= 0 && ftruncate(file, off_t{sectorCount_ - firstSector} * kSectorSize) == 0;
  for (const auto* sectors : {base_.get(), &changed_}) {
    for (const auto& [sector, bytes] : *sectors) {
      if (sector < firstSector || sector >= sectorCount_) continue;
      good = good && pwrite(file, bytes.data(), bytes.size(), off_t{sector - firstSector} * kSectorSize) == kSectorSize;
    }
  }
  close(file);
  if (!good) throw std::runtime_error("cannot write " + path);
}

// ---- Making

VolumeImage Made(const VolumeShape& shape, const std::string& items) {
  const TempFolder folder, local;
  const std::string volume = folder / "volume";
  const bool is32 = shape.fatBits == 32;
  const uint32_t clusters = shape.clusters != 0 ? shape.clusters : (is32 ? 65600U : 4200U);
  const uint32_t fatSectors = clusters / (is32 ? 128 : 256) + 1;
  const uint32_t rootSectors = is32 ? 0 : shape.rootEntries * 32 / kSectorSize;
  const uint32_t reserved = is32 ? 32 : 4;
  const uint32_t total = reserved + shape.fats * fatSectors + rootSectors + clusters * shape.sectorsPerCluster;
  VolumeImage(total + total % 2).Save(volume);
  Strings command = Split("mkfs.fat -a --invariant -I -F " + std::to_string(shape.fatBits) + " -R " +
                              std::to_string(reserved) + " -s " + std::to_string(shape.sectorsPerCluster) + " -f " +
                              std::to_string(shape.fats) + " -h " + std::to_string(shape.partitionStart),
                          ' ');
  if (!is32) command.insert(command.end(), {"-r", std::to_string(shape.rootEntries)});
  command.push_back(volume);
  RunTool(command);

  Strings files;  // on the host, not copied yet
  std::string common;
  const auto begin = [&](const std::string& next) {
    if (next == common) return;
    files.insert(files.begin(), {"mcopy", "-m", "-i", volume});
    files.push_back("::" + common.substr(0, common.find(':')));
    if (!common.empty()) RunTool(files);
    files.clear();
    common = next;
  };
  for (const auto& item : Split(items, '|')) {
    const Strings parts = Split(item, ':');
    const size_t name = parts[0].rfind('/') + 1;
    begin(parts.size() == 1 ? "" : parts[0].substr(0, name) + item.substr(parts[0].size()));
    if (parts.size() > 1) {
      files.push_back(local / parts[0].substr(name));
      const auto seed = static_cast<uint32_t>(parts.size() > 2 ? std::stoul(parts[2]) : 1);
      WriteWholeFile(files.back(), Pattern(std::stoul(parts[1]), seed));
      SetLastWrite(files.back(), 1500000000);  // 2017-07-14 02:40:00
    } else if (!item.empty()) {
      const bool isOld = item[0] == '-';
      RunTool({isOld ? "mdel" : "mmd", "-i", volume, "::" + item.substr(isOld ? 1 : 0)});
    }
  }
  begin("");

  VolumeImage image;
  image.Load(volume, shape.partitionStart);
  if (shape.partitionStart != 0) {
    auto& table = image.At(0);
    table[450] = 0x0C;
    WriteU32(table, 454, shape.partitionStart);
    WriteU32(table, 458, image.SectorCount() - shape.partitionStart);
    WriteU16(table, 510, 0xAA55);
  }
  return image;
}

// ---- Judges

std::map<std::string, VolumeItem> ReadTree(VolumeImage& image, uint32_t partitionStart) {
  TempFolder folder;
  image.Save(folder / "volume", partitionStart);
  const auto root = folder.Path() / "tree";
  std::filesystem::create_directory(root);
  RunTool({"mcopy", "-s", "-n", "-m", "-i", folder / "volume", "::/", root.string()});
  std::map<std::string, VolumeItem> items;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    auto& item = items["/" + entry.path().lexically_relative(root).string()];
    item.isFolder = entry.is_directory();
    if (!item.isFolder) item.content = ReadWholeFile(entry.path());
    struct stat info {};
    if (stat(entry.path().c_str(), &info) == 0) item.modified = info.st_mtime;
  }
  return items;
}

Strings FsckComplaints(VolumeImage& image, uint32_t partitionStart) {
  TempFolder folder;
  image.Save(folder / "volume", partitionStart);
  auto lines = RunTool({"fsck.fat", "-n", folder / "volume"}, true);
  std::erase_if(lines, [](const std::string& line) {
    static constexpr const char* kHarmless[] = {"fsck.fat ",          " files, ",        "Free cluster summary",
                                                "Leaving filesystem", "Auto-correcting", "  1) Correct",
                                                "  2) Don't correct"};
    return line.empty() ||
           std::ranges::any_of(kHarmless, [&](const char* part) { return line.find(part) != std::string::npos; });
  });
  return lines;
}

}  // namespace media_adapter::sim

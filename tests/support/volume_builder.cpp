#include "tests/support/volume_builder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "protocol/little_endian.h"

namespace media_adapter::sim {
namespace {

// What it says, by lines. Throws when it fails, unless that is no news.
std::vector<std::string> RunTool(const std::vector<std::string>& command, bool mayFail = false) {
  std::string line = "MTOOLS_SKIP_CHECK=1 MTOOLSRC=/dev/null TZ=UTC exec", output;
  for (std::string word : command) {
    for (size_t at = 0; (at = word.find('\'', at)) != std::string::npos; at += 4) word.replace(at, 1, "'\\''");
    line += " '" + word + "'";
  }
  FILE* const tool = popen((line + " 2>&1 </dev/null").c_str(), "re");
  if (tool == nullptr) throw std::runtime_error("cannot run " + command[0]);
  char buffer[4096];
  while (const size_t count = fread(buffer, 1, sizeof(buffer), tool)) output.append(buffer, count);
  if (pclose(tool) != 0 && !mayFail) throw std::runtime_error(command[0] + ": " + output);
  std::vector<std::string> lines;
  std::istringstream stream(output);
  while (std::getline(stream, line)) lines.push_back(line);
  return lines;
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

// ---- VolumeBuilder

VolumeBuilder::VolumeBuilder(const VolumeShape& shape) : shape_(shape), volume_(folder_ / "volume") {
  const bool is32 = shape.fatBits == 32;
  const uint32_t clusters = shape.clusters != 0 ? shape.clusters : (is32 ? 65600U : 4200U);
  const uint32_t fatSectors = clusters / (is32 ? 128 : 256) + 1;
  const uint32_t rootSectors = is32 ? 0 : shape.rootEntries * 32 / kSectorSize;
  const uint32_t reserved = is32 ? 32 : 4;
  const uint32_t total = reserved + shape.fats * fatSectors + rootSectors + clusters * shape.sectorsPerCluster;
  VolumeImage(total + total % 2).Save(volume_);
  std::vector<std::string> command = {"mkfs.fat", "-a", "--invariant", "-I", "-F", std::to_string(shape.fatBits)};
  const auto add = [&](const char* option, uint32_t value) {
    command.insert(command.end(), {option, std::to_string(value)});
  };
  add("-R", reserved);
  add("-s", shape.sectorsPerCluster);
  add("-f", shape.fats);
  add("-h", shape.partitionStart);
  if (!is32) add("-r", shape.rootEntries);
  command.push_back(volume_);
  RunTool(command);
}

void VolumeBuilder::Mtool(const std::string& tool, std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {tool, "-i", volume_});
  RunTool(arguments);
}

void VolumeBuilder::AddFolder(const std::string& path) { Mtool("mmd", {"::" + path}); }

void VolumeBuilder::AddFile(const std::string& path, std::span<const uint8_t> content) {
  const auto slash = path.rfind('/');
  AddFiles(path.substr(0, slash), {path.substr(slash + 1)}, content);
}

void VolumeBuilder::AddFiles(const std::string& folder, const std::vector<std::string>& names,
                             std::span<const uint8_t> content) {
  TempFolder files;
  std::vector<std::string> arguments = {"-m"};
  for (const auto& name : names) {
    WriteWholeFile(files / name, content);
    SetLastWrite(files / name, 1500000000);  // 2017-07-14 02:40:00
    arguments.push_back(files / name);
  }
  arguments.push_back("::" + folder + "/");
  Mtool("mcopy", arguments);
}

void VolumeBuilder::Delete(const std::string& path) { Mtool("mdel", {"::" + path}); }

VolumeImage VolumeBuilder::Build() const {
  VolumeImage image;
  image.Load(volume_, shape_.partitionStart);
  if (shape_.partitionStart != 0) {
    auto& table = image.At(0);
    table[450] = 0x0C;
    WriteU32(table, 454, shape_.partitionStart);
    WriteU32(table, 458, image.SectorCount() - shape_.partitionStart);
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
  // A line of mattrib: "  A  SHR     ::/folder/name". It fails where the root has no file.
  for (const auto& line : RunTool({"mattrib", "-/", "-i", folder / "volume", "::/"}, true)) {
    const auto colons = line.find("::/");
    const auto item = colons == std::string::npos ? items.end() : items.find(line.substr(colons + 2));
    if (item == items.end()) continue;
    std::ranges::copy_if(line.substr(0, colons), std::back_inserter(item->second.attributes),
                         [](char c) { return c != ' '; });
  }
  return items;
}

std::vector<std::string> FsckComplaints(VolumeImage& image, uint32_t partitionStart) {
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

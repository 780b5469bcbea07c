// The judging of a history: each step's status, its writes and what it left, the volume's structure after it, and at
// the end of some histories what strangers say.
#include <algorithm>
#include <chrono>
#include <cstring>

#include "api/media_adapter.h"
#include "protocol/little_endian.h"
#include "tests/soak/history.h"

namespace media_adapter::soak {

using sim::VolumeImage;

namespace {

constexpr Slot kZero{};
constexpr int64_t kFirstTime = 315532800;  // 1980

uint16_t DateOf(const platform::LocalTime& at) {
  return static_cast<uint16_t>((at.year - 1980) << 9 | at.month << 5 | at.day);
}
uint16_t TimeOf(const platform::LocalTime& at) {
  return static_cast<uint16_t>(at.hour << 11 | at.minute << 5 | at.second / 2);
}
platform::LocalTime LocalTimeOf(int64_t seconds) {
  const std::chrono::sys_seconds time{std::chrono::seconds(std::max(seconds, kFirstTime))};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  platform::LocalTime local;
  local.year = static_cast<uint16_t>(static_cast<int>(date.year()));
  local.month = static_cast<uint8_t>(static_cast<unsigned>(date.month()));
  local.day = static_cast<uint8_t>(static_cast<unsigned>(date.day()));
  local.hour = static_cast<uint8_t>(clock.hours().count());
  local.minute = static_cast<uint8_t>(clock.minutes().count());
  local.second = static_cast<uint8_t>(clock.seconds().count());
  return local;
}

Slot LongNameSlot(const std::string& name, size_t ordinal, size_t last, uint8_t checksum) {
  Slot slot{};
  slot[0] = static_cast<uint8_t>(ordinal | (ordinal == last ? 0x40 : 0));
  slot[11] = 0x0F;
  slot[13] = checksum;
  const std::string part = name.substr(13 * (ordinal - 1), 13);
  for (size_t i = 0; i < 13; ++i) {
    const size_t at = i < 5 ? 1 + 2 * i : i < 11 ? 4 + 2 * i : 6 + 2 * i;
    WriteU16(slot, at, i < part.size() ? static_cast<uint8_t>(part[i]) : i == part.size() ? 0 : 0xFFFF);
  }
  return slot;
}

}  // namespace

void History::Judge(const Step& step, const Plan& plan, uint32_t status) {
  Require(status == plan.status || faults_->Explain(status), "this status has no reason");
  const std::set<uint32_t> allowed = SectorsOf(step, plan);
  for (const uint32_t sector : disk_->written) {
    Require(allowed.contains(sector), "a sector that is none of the step's was written", sector);
  }
  Clusters fat = JudgeFat(plan);
  if (step.kind == Kind::Format) {
    JudgeFormat(plan, fat, status);
  } else if (step.kind == Kind::Get || step.kind == Kind::List) {
    if (status == 0) JudgeRead(step, plan);
  } else {
    JudgeChange(step, plan, std::move(fat), status == 0 || (status == plan.status && !faults_->AreOn()));
  }
  if (!isHalfCleared_) Look();
}

// What the step has any business to write.
std::set<uint32_t> History::SectorsOf(const Step& step, const Plan& plan) const {
  std::set<uint32_t> sectors;
  const auto add = [&](uint32_t first, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) sectors.insert(first + i);
  };
  if (step.kind == Kind::Format) {
    add(volume_->fat, volume_->fatSectors);
    volume_->is32 ? add(volume_->SectorOf(2), volume_->sectorsPerCluster)
                  : add(volume_->root, volume_->data - volume_->root);
    return sectors;
  }
  // FAT sectors are written back unchanged, too: JudgeFat looks at their entries.
  const bool changesFat = !plan.growth.empty() || !plan.content.empty() || !plan.freed.empty();
  if (changesFat || step.kind == Kind::Delete) add(volume_->fat, volume_->fatSectors);
  for (const Clusters* clusters : {&plan.growth, &plan.content}) {
    for (const uint32_t c : *clusters) add(volume_->SectorOf(c), volume_->sectorsPerCluster);
  }
  if (plan.folder == nullptr) return sectors;
  Clusters chain = plan.folder->folder.chain;
  chain.insert(chain.end(), plan.growth.begin(), plan.growth.end());
  for (const size_t place : plan.places) add(volume_->SectorOfSlot(chain, place), 1);
  return sectors;
}

// Each entry is as it was, as planned, or as it is in between: freed, or the end of a folder that grows on.
Clusters History::JudgeFat(const Plan& plan) const {
  Clusters fat = fat_;
  for (const uint32_t sector : std::set(disk_->written.begin(), disk_->written.end())) {
    if (sector < volume_->fat || sector >= volume_->fat + volume_->fatSectors) continue;
    volume_->ReadFatSector(sector - volume_->fat, fat);
    const uint32_t first = (sector - volume_->fat) * volume_->entriesPerSector;
    for (uint32_t c = first; c < first + volume_->entriesPerSector; ++c) {
      if (fat[c] == fat_[c] || fat[c] == plan.fat[c]) continue;
      const Clusters& between = fat[c] == 0 ? plan.freed : plan.growth;
      Require((fat[c] == 0 || fat[c] == kEnd) && std::ranges::find(between, c) != between.end(),
              "a FAT entry was changed", c);
    }
  }
  return fat;
}

// ---- Reading

void History::JudgeRead(const Step& step, const Plan& plan) {
  if (plan.item->isFolder) return JudgeListing(*plan.item);
  Require(sim::ReadWholeFile("d/" + NameIn(step.path)) == plan.item->content, "the file came with wrong bytes");
}

void History::JudgeListing(const Item& folder) const {
  const ReadDataResult& result = *API_RFAReadData("", nullptr, 0, "", 0);  // 243, and the record as it was
  Require(result.entryCount == folder.folder.entries.size(), "rows of the listing", result.entryCount);
  for (size_t i = 0; i < result.entryCount; ++i) {
    const ListingEntry& row = result.entries[i];
    const Entry& entry = folder.folder.entries[i];
    const platform::LocalTime at{row.year,
                                 static_cast<uint8_t>(row.month),
                                 static_cast<uint8_t>(row.day),
                                 static_cast<uint8_t>(row.hour),
                                 static_cast<uint8_t>(row.minute),
                                 static_cast<uint8_t>(row.second)};
    Require(row.number == i + 1 && row.name == entry.name && row.attributes == entry.slot[11] &&
                row.size == ReadU32(entry.slot, 28) && row.firstCluster == volume_->ClusterOf(entry.slot) &&
                DateOf(at) == ReadU16(entry.slot, 24) && TimeOf(at) == ReadU16(entry.slot, 22),
            "the listing's row", entry.name);
  }
}

// ---- Changing

void History::JudgeFormat(const Plan& plan, const Clusters& fat, uint32_t status) {
  Item& root = items_[""];
  const Clusters chain = volume_->is32 ? Clusters{2} : Clusters{};
  const Folder now = volume_->ReadFolder(chain);
  bool isClear = true;
  for (size_t i = 0; i < now.slots.size(); ++i) {
    isClear = isClear && now.slots[i] == kZero;
    Require(now.slots[i] == kZero || now.slots[i] == root.folder.slots[i], "a root slot was changed", i);
  }
  Require(status != 0 || (isClear && fat == plan.fat), "the volume was not cleared");
  isHalfCleared_ = status != 0 && (isHalfCleared_ || !disk_->written.empty());
  fat_ = fat;
  if (status != 0) return;
  items_.clear();
  avoided_.clear();
  lost_.clear();
  items_[""].folder = now;
}

void History::JudgeChange(const Step& step, const Plan& plan, Clusters fat, bool mustBeDone) {
  if (plan.folder == nullptr || !plan.folder->isFolder) return;  // and nothing was written
  Item& folder = *plan.folder;
  bool isFrozen = folder.isFrozen;
  const Folder now = SoundPart(step, plan, fat, isFrozen);
  bool isDone = fat == plan.fat, isUntouched = fat == fat_;
  size_t planned = 0;
  for (size_t i = 0; i < now.slots.size(); ++i) {
    const Slot& before = i < folder.folder.slots.size() ? folder.folder.slots[i] : kZero;
    const bool isPlace = std::ranges::find(plan.places, i) != plan.places.end();
    const bool isPlanned = isPlace && IsPlanned(step, plan, i, now);
    planned += isPlanned ? 1 : 0;
    Require(isPlanned || now.slots[i] == before, "a slot was changed", i);
    isUntouched = isUntouched && now.slots[i] == before;
  }
  // The short entry's sector is written first.
  const bool isThere =
      !plan.places.empty() && plan.places.back() < now.slots.size() && IsPlanned(step, plan, plan.places.back(), now);
  Require(isThere || planned == 0, "long-name entries were written before the short one");
  isDone = isDone && planned == plan.places.size();
  const bool isWhole = isDone && plan.status == 0 && HasContent(step, plan);
  Require(!mustBeDone || (plan.status == 0 ? isWhole : isDone), "this is not what the step is to leave");

  for (const Clusters* clusters : {&plan.growth, &plan.content, &plan.freed}) {
    if (!isWhole) lost_.insert(clusters->begin(), clusters->end());
  }
  fat_ = std::move(fat);
  folder.folder = now;
  folder.isFrozen = isFrozen;
  Keep(step, plan, isThere, isWhole, isUntouched);
}

// The folder up to where growing it failed: at a cluster that is linked to but not taken, or not cleared. What was
// cleared before the entry was written there is not looked at.
Folder History::SoundPart(const Step& step, const Plan& plan, const Clusters& fat, bool& isFrozen) const {
  Clusters chain = plan.folder->folder.chain;
  for (const uint32_t c : plan.growth) {
    isFrozen = fat[chain.back()] == c && fat[c] == 0;
    if (fat[chain.back()] != c || isFrozen) break;
    chain.push_back(c);
  }
  Folder part = volume_->ReadFolder(chain);
  const bool isWritten = !plan.places.empty() && plan.places.back() < part.slots.size() &&
                         IsPlannedShort(step, plan, part.slots[plan.places.back()]);
  const auto begin = part.slots.begin() + static_cast<ptrdiff_t>(plan.folder->folder.slots.size());
  const auto used = std::find_if(begin, part.slots.end(), [](const Slot& slot) { return slot != kZero; });
  if (isWritten || used == part.slots.end()) return part;
  isFrozen = true;
  const auto sound = static_cast<size_t>(used - part.slots.begin()) * sizeof(Slot) / ClusterSize();
  chain.resize(std::max(sound, plan.folder->folder.chain.size()));
  return volume_->ReadFolder(chain);
}

bool History::IsPlanned(const Step& step, const Plan& plan, size_t place, const Folder& now) const {
  const Slot& slot = now.slots[place];
  if (step.kind == Kind::Delete) {
    Slot marked = plan.folder->folder.slots[place];
    marked[0] = 0xE5;
    return slot == marked;
  }
  const Slot& own = now.slots[plan.places.back()];
  if (place == plan.places.back()) return IsPlannedShort(step, plan, own);
  const auto ordinal =
      static_cast<size_t>(std::ranges::find(plan.places, plan.places.back()) - std::ranges::find(plan.places, place));
  return slot == LongNameSlot(plan.name, ordinal, plan.places.size() - 1, ChecksumOf(own));
}

bool History::IsPlannedShort(const Step& step, const Plan& plan, const Slot& slot) const {
  const uint32_t cluster = plan.content.empty() ? 0 : plan.content.front();
  const platform::LocalTime& now = world_.localTime;
  const platform::LocalTime written = step.kind == Kind::MakeFolder ? now : LocalTimeOf(step.modified);
  Slot planned = plan.item != nullptr ? plan.item->entry.slot : slot;  // a new name is judged with the whole folder
  planned[11] = step.attributes;
  if (plan.item == nullptr) {
    planned[13] = 0;
    WriteU16(planned, 14, TimeOf(now));
    WriteU16(planned, 16, DateOf(now));
  }
  WriteU16(planned, 18, DateOf(now));
  WriteU16(planned, 20, static_cast<uint16_t>(cluster >> 16));
  WriteU16(planned, 22, TimeOf(written));
  WriteU16(planned, 24, DateOf(written));
  WriteU16(planned, 26, static_cast<uint16_t>(cluster));
  WriteU32(planned, 28, static_cast<uint32_t>(step.content.size()));
  return slot == planned && !IsFree(slot);
}

bool History::HasDots(const Folder& folder, const Item& parent) const {
  const uint32_t up = parent.path.empty() ? 0 : parent.folder.chain.front();
  const auto isDot = [&](size_t place, const char* name, uint32_t cluster) {
    const Entry& entry = folder.entries[place];
    return entry.name == name && entry.places.back() == place && entry.slot[11] == 0x10 &&
           ReadU32(entry.slot, 28) == 0 && volume_->ClusterOf(entry.slot) == cluster;
  };
  return folder.entries.size() >= 2 && isDot(0, ".", folder.chain.front()) && isDot(1, "..", up);
}

bool History::HasContent(const Step& step, const Plan& plan) const {
  if (step.kind == Kind::Put) {
    return volume_->Content(plan.content, static_cast<uint32_t>(step.content.size())) == step.content;
  }
  if (step.kind != Kind::MakeFolder) return true;
  const Folder made = volume_->ReadFolder(plan.content);
  return made.entries.size() == 2 &&
         std::all_of(made.slots.begin() + 2, made.slots.end(), [](const Slot& slot) { return slot == kZero; });
}

// Takes over what the step left of its item.
void History::Keep(const Step& step, const Plan& plan, bool isThere, bool isWhole, bool isUntouched) {
  Item& folder = *plan.folder;
  if (step.kind == Kind::Delete) {
    if (!isThere) return;
    for (const size_t place : plan.places) {
      if (!IsFree(folder.folder.slots[place])) folder.orphans.insert(place);
    }
    items_.erase(Key(plan.item->path));
    return;
  }
  if (plan.item == nullptr && !isThere) return;
  if (plan.item != nullptr && plan.item->isFolder) return;
  const bool isIntact = plan.item != nullptr && isUntouched && !isWhole &&
                        volume_->Content(volume_->Chain(fat_, volume_->ClusterOf(plan.item->entry.slot)),
                                         ReadU32(plan.item->entry.slot, 28)) == plan.item->content;
  if (isIntact) return;
  const size_t place = plan.item != nullptr ? plan.item->entry.places.back() : plan.places.back();
  const auto entry = std::ranges::find(folder.folder.entries, place, [](const Entry& e) { return e.places.back(); });
  Require(entry != folder.folder.entries.end(), "the entry is not there");
  Require(!isWhole || plan.item != nullptr || entry->name == plan.name, "the name became", entry->name);
  Item item{.path = folder.path + "\\" + entry->name, .isFolder = entry->IsFolder(), .isBroken = !isWhole};
  if (item.isFolder && entry->name != plan.name) avoided_.insert(Key(folder.path + "\\" + plan.name));
  if (item.isFolder && isWhole) item.folder = volume_->ReadFolder(plan.content);
  if (!item.isFolder) item.content = step.content;
  item.entry = *entry;
  items_[Key(item.path)] = std::move(item);
}

// ---- The volume's structure

void History::Look() {
  std::vector<bool> owned(fat_.size());
  size_t entries = 1;
  for (auto& [key, item] : items_) {
    if (item.isBroken) continue;
    if (item.isFolder) {
      LookInto(item, owned);
      entries += item.folder.entries.size() - (key.empty() ? 0 : 2);
      continue;
    }
    const Clusters chain = volume_->Chain(fat_, volume_->ClusterOf(item.entry.slot));
    Require(chain.size() == (item.content.size() + ClusterSize() - 1) / ClusterSize() &&
                item.content.size() == ReadU32(item.entry.slot, 28) && (chain.empty() || fat_[chain.back()] == kEnd),
            "the length of", item.path);
    Claim(chain, owned, item.path);
  }
  Require(entries == items_.size(), "an item is missing");
  std::erase_if(lost_, [&](uint32_t c) { return owned[c] || fat_[c] == 0; });
  for (uint32_t c = 2; c < fat_.size(); ++c) {
    const bool isNobodys = fat_[c] != 0 && fat_[c] != kBad && !owned[c] && !lost_.contains(c);
    Require(!isNobodys, "a cluster is lost", c);
  }
}

void History::LookInto(Item& folder, std::vector<bool>& owned) {
  const Folder& now = folder.folder = volume_->ReadFolder(folder.folder.chain);
  const auto chain = volume_->Chain(fat_, folder.folder.chain.empty() ? 0 : folder.folder.chain.front());
  Require(folder.isFrozen || chain == folder.folder.chain, "the chain of", folder.path);
  Require(folder.isFrozen || chain.empty() || fat_[chain.back()] == kEnd, "the end of", folder.path);
  Claim(now.chain, owned, folder.path);
  Require(folder.path.empty() || HasDots(now, items_.at(Key(FolderOf(folder.path)))), "the dots of", folder.path);
  std::set<std::string> names;
  std::set<size_t> places = folder.orphans;
  folder.hasRemains = !folder.orphans.empty();
  for (const Entry& entry : now.entries) {
    places.insert(entry.places.begin(), entry.places.end());
    Require(names.emplace(entry.slot.begin(), entry.slot.begin() + 11).second, "a short name twice in", folder.path);
    const size_t place = entry.places.back();
    if (!folder.path.empty() && place < 2) continue;
    const Item* item = Find(folder.path + "\\" + entry.name);
    Require(item != nullptr && item->entry.places == entry.places && item->entry.slot == entry.slot &&
                item->isFolder == entry.IsFolder(),
            "the entry", entry.name);
    folder.hasRemains = folder.hasRemains || item->isBroken;
  }
  for (size_t i = 0; i < now.slots.size(); ++i) {
    Require(!IsLongName(now.slots[i]) || places.contains(i), "a long-name slot is nobody's", i);
    const bool isGap = now.slots[i][0] == 0 && !places.empty() && i < *places.rbegin();
    Require(!isGap || folder.hasRemains, "to others the folder ends at a slot before its last", i);
  }
}

void History::Claim(const Clusters& chain, std::vector<bool>& owned, const std::string& path) const {
  for (const uint32_t c : chain) {
    Require(!owned[c], "a cluster belongs to another, too", path);
    owned[c] = true;
  }
}

// ---- The end

// The volume without what the failures left, and with a second FAT like the first, which is never written.
VolumeImage History::WithoutRemains() {
  VolumeImage image = *disk_;
  const auto release = [&](const Clusters& chain, size_t place) {
    image.At(volume_->SectorOfSlot(chain, place))[place % 16 * 32] = 0xE5;
  };
  const auto setLink = [&](uint32_t c, uint32_t value) {
    auto& sector = image.At(volume_->fat + c / volume_->entriesPerSector);
    const size_t at = c % volume_->entriesPerSector;
    volume_->is32 ? WriteU32(sector, at * 4, value) : WriteU16(sector, at * 2, static_cast<uint16_t>(value));
  };
  for (const auto& [key, item] : items_) {
    for (size_t place = 0; item.hasRemains && place < item.folder.slots.size(); ++place) {
      const bool isRemains = item.folder.slots[place][0] == 0 || item.orphans.contains(place);
      if (isRemains) release(item.folder.chain, place);
    }
    if (item.isFrozen) setLink(item.folder.chain.back(), kEnd);
    if (!item.isBroken) continue;
    for (const size_t place : item.entry.places) release(items_.at(Key(FolderOf(item.path))).folder.chain, place);
  }
  for (const uint32_t c : lost_) setLink(c, 0);
  for (uint32_t i = 0; volume_->fats == 2 && i < volume_->fatSectors; ++i) {
    image.At(volume_->fat + volume_->fatSectors + i) = image.At(volume_->fat + i);
  }
  return image;
}

// A path as mtools spells it: a long name in Latin-1, a short one in code page 850.
std::string Foreign(std::string path) {
  const bool isLong = NameIn(path).find(' ') != std::string::npos;
  std::ranges::replace(path, '\\', '/');
  const size_t at = path.find('\345');
  return at == std::string::npos ? path : path.replace(at, 1, isLong ? "\xC3\xA5" : "\xC3\x95");
}

void History::JudgeEnd() {
  VolumeImage image = WithoutRemains();
  for (const auto& complaint : sim::FsckComplaints(image, shape_.partitionStart)) Require(false, "fsck.fat", complaint);
  const auto tree = sim::ReadTree(image, shape_.partitionStart);
  size_t count = 0;
  for (const auto& [key, item] : items_) {
    if (item.isBroken || key.empty()) continue;
    ++count;
    const auto found = tree.find(Foreign(item.path));
    Require(found != tree.end() && found->second.isFolder == item.isFolder, "mtools do not find", item.path);
    if (item.isFolder) continue;
    std::string attributes;
    for (size_t i = 0; i < 4; ++i) attributes.append((item.entry.slot[11] & "\x20\x04\x02\x01"[i]) != 0, "ASHR"[i]);
    const std::chrono::sys_seconds modified{std::chrono::seconds(found->second.modified)};
    const auto at = LocalTimeOf(modified.time_since_epoch().count());
    Require(found->second.content == item.content && found->second.attributes == attributes &&
                DateOf(at) == ReadU16(item.entry.slot, 24) && TimeOf(at) == ReadU16(item.entry.slot, 22),
            "mtools read otherwise", item.path);
  }
  Require(count == tree.size(), "items that mtools find", tree.size());
  totals.judged += 1;
}

}  // namespace media_adapter::soak

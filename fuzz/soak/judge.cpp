// The judging of a step: its status, its writes, and what it left of its item. The volume as a whole is judged in
// structure.cpp.
#include "api/media_adapter.h"
#include "fuzz/soak/history.h"

namespace media_adapter::soak {
namespace {

bool AreZero(std::span<const Slot> slots) {
  return std::ranges::all_of(slots, [](const Slot& slot) { return slot == kZero; });
}

bool Has(const auto& places, size_t place) { return std::ranges::find(places, place) != places.end(); }

}  // namespace

void History::Judge(const Step& step, const Plan& plan, uint32_t status) {
  Require(status == plan.status || faults_->Explain(status), "this status has no reason");
  const std::set<uint32_t> allowed = SectorsOf(step, plan);
  for (const uint32_t sector : disk_->written) {
    Require(allowed.contains(sector), "a sector that is none of the step's was written", sector);
  }
  Clusters fat = JudgeFat(plan);
  if (step.kind == Kind::Format) {
    JudgeFormat(plan, std::move(fat), status);
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
  // FAT sectors are written back unchanged, too: JudgeFat looks at their entries.
  const bool changesFat = !plan.growth.empty() || !plan.content.empty() || !plan.freed.empty();
  if (changesFat || step.kind == Kind::Delete || step.kind == Kind::Format) add(volume_->fat, volume_->fatSectors);
  if (step.kind == Kind::Format) add(volume_->root, volume_->data - volume_->root);
  if (step.kind == Kind::Format && volume_->is32) add(volume_->SectorOf(2), volume_->sectorsPerCluster);
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
  for (const uint32_t sector : disk_->written) {
    if (sector < volume_->fat || sector >= volume_->fat + volume_->fatSectors) continue;
    volume_->ReadFatSector(sector - volume_->fat, fat);
    const uint32_t first = (sector - volume_->fat) * volume_->linksPerSector;
    for (uint32_t c = first; c < first + volume_->linksPerSector; ++c) {
      const bool isBetween = (fat[c] == 0 && Has(plan.freed, c)) || (fat[c] == kEnd && Has(plan.growth, c));
      Require(fat[c] == fat_[c] || fat[c] == plan.fat[c] || isBetween, "a FAT entry was changed", c);
    }
  }
  return fat;
}

void History::JudgeRead(const Step& step, const Plan& plan) const {
  if (!plan.item->isFolder) {
    return Require(sim::ReadWholeFile("d/" + NameIn(step.path)) == plan.item->content,
                   "the file came with wrong bytes");
  }
  const auto& entries = plan.item->folder.entries;
  const ReadDataResult& result = *API_RFAReadData("", nullptr, 0, "", 0);  // 243, and the record as it was
  Require(result.entryCount == entries.size(), "rows of the listing", result.entryCount);
  for (size_t i = 0; i < entries.size(); ++i) {
    const ListingEntry& row = result.entries[i];
    const Slot& slot = entries[i].slot;
    Require(row.number == i + 1 && row.name == entries[i].name && row.attributes == slot[slot::kAttributes] &&
                row.size == entries[i].Size() && row.firstCluster == sim::ClusterIn(slot) &&
                (row.hour << 11 | row.minute << 5 | row.second / 2) == ReadU16(slot, slot::kWrite) &&
                ((row.year - 1980) << 9 | row.month << 5 | row.day) == ReadU16(slot, slot::kWriteDate),
            "a row of the listing", entries[i].name);
  }
}

// ---- What a step left

void History::JudgeFormat(const Plan& plan, Clusters fat, uint32_t status) {
  const Folder before = items_[""].folder;
  const Folder now = volume_->ReadFolder(volume_->is32 ? Clusters{2} : Clusters{});
  for (size_t i = 0; i < now.slots.size(); ++i) {
    Require(now.slots[i] == kZero || now.slots[i] == before.slots[i], "a root slot was changed", i);
  }
  Require(status != 0 || (AreZero(now.slots) && fat == plan.fat), "the volume was not cleared");
  isHalfCleared_ = status != 0 && (isHalfCleared_ || !disk_->written.empty());
  fat_ = std::move(fat);
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
  bool isUntouched = fat == fat_;
  size_t planned = 0;
  for (size_t i = 0; i < now.slots.size(); ++i) {
    const Slot& before = i < folder.folder.slots.size() ? folder.folder.slots[i] : kZero;
    const bool isPlanned = Has(plan.places, i) && IsPlanned(step, plan, i, now);
    Require(isPlanned || now.slots[i] == before, "a slot was changed", i);
    planned += isPlanned ? 1 : 0;
    isUntouched = isUntouched && now.slots[i] == before;
  }
  // The short entry's sector is written first.
  const bool isThere = planned != 0 && IsPlanned(step, plan, plan.places.back(), now);
  Require(isThere || planned == 0, "long-name entries were written before the short one");
  const bool isDone = fat == plan.fat && planned == plan.places.size();
  const bool isWhole = isDone && plan.status == 0 && HasContent(step, plan);
  Require(!mustBeDone || (plan.status == 0 ? isWhole : isDone), "this is not what the step is to leave");

  for (const Clusters* clusters : {&plan.growth, &plan.content, &plan.freed}) {
    if (!isWhole) lost_.insert(clusters->begin(), clusters->end());  // but for those that Look finds in use
  }
  fat_ = std::move(fat);
  folder.folder = now;
  folder.isFrozen = isFrozen;
  KeepItem(step, plan, isThere, isWhole, isUntouched);
}

// The folder up to where growing it failed: at a cluster that is linked to but not taken, or not cleared. What was
// cleared before the entry was written there is not looked at.
Folder History::SoundPart(const Step& step, const Plan& plan, const Clusters& fat, bool& isFrozen) const {
  const Folder& before = plan.folder->folder;
  Clusters chain = before.chain;
  for (const uint32_t c : plan.growth) {
    if (fat[chain.back()] != c) break;
    isFrozen = fat[c] == 0;
    if (isFrozen) break;
    chain.push_back(c);
  }
  Folder part = volume_->ReadFolder(chain);
  const bool isWritten = !plan.places.empty() && plan.places.back() < part.slots.size() &&
                         IsPlannedShort(step, plan, part.slots[plan.places.back()]);
  if (isWritten || AreZero(std::span(part.slots).subspan(before.slots.size()))) return part;
  isFrozen = true;
  return before;
}

bool History::IsPlanned(const Step& step, const Plan& plan, size_t place, const Folder& now) const {
  const Slot& slot = now.slots[place];
  if (step.kind == Kind::Delete) {
    Slot marked = plan.folder->folder.slots[place];
    marked[0] = 0xE5;
    return slot == marked;
  }
  if (plan.places.back() >= now.slots.size()) return false;
  const Slot& own = now.slots[plan.places.back()];
  if (place == plan.places.back()) return IsPlannedShort(step, plan, own);
  const size_t ordinal = plan.places.back() - place, last = place == plan.places.front() ? 0x40 : 0;
  const std::string part = plan.name.substr(13 * (ordinal - 1), 13);
  return std::ranges::equal(slot, sim::LongSlot(static_cast<uint8_t>(ordinal | last), part, ChecksumOf(own)));
}

bool History::IsPlannedShort(const Step& step, const Plan& plan, const Slot& slot) const {
  const bool isNew = plan.item == nullptr;
  const uint32_t cluster = plan.content.empty() ? 0 : plan.content.front();
  const Moment now(now_), written(step.kind == Kind::MakeFolder ? now_ : step.modified);
  Slot planned = isNew ? slot : plan.item->entry.slot;  // a new name is judged with the long one, and by Look
  planned[slot::kAttributes] = step.attributes;
  if (isNew) planned[13] = 0;
  if (isNew) WriteU32(planned, slot::kCreation, now.Stamp());
  WriteU16(planned, slot::kAccessDate, now.date);
  WriteU16(planned, slot::kClusterHigh, static_cast<uint16_t>(cluster >> 16));
  WriteU32(planned, slot::kWrite, written.Stamp());
  WriteU16(planned, slot::kClusterLow, static_cast<uint16_t>(cluster));
  WriteU32(planned, slot::kSize, static_cast<uint32_t>(step.content.size()));
  return slot == planned && !IsFree(slot);
}

bool History::HasContent(const Step& step, const Plan& plan) const {
  if (step.kind == Kind::Put) return volume_->Content(plan.content, step.content.size()) == step.content;
  if (step.kind != Kind::MakeFolder) return true;
  const Folder made = volume_->ReadFolder(plan.content);
  return HasDots(made, *plan.folder, Moment(now_).Stamp()) && AreZero(std::span(made.slots).subspan(2));
}

// Takes over what the step left of its item.
void History::KeepItem(const Step& step, const Plan& plan, bool isThere, bool isWhole, bool isUntouched) {
  Item& folder = *plan.folder;
  if (step.kind == Kind::Delete) {
    if (!isThere) return;
    for (const size_t place : plan.places) {
      if (!IsFree(folder.folder.slots[place])) folder.orphans.insert(place);
    }
    items_.erase(Key(plan.item->path));
    return;
  }
  if (plan.item == nullptr ? !isThere : plan.item->isFolder) return;
  if (plan.item != nullptr && isUntouched && !isWhole) {
    const Entry& old = plan.item->entry;
    const Clusters chain = volume_->Chain(fat_, sim::ClusterIn(old.slot));
    if (volume_->Content(chain, old.Size()) == plan.item->content) return;
  }
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

}  // namespace media_adapter::soak

// The judging of the volume as a whole: its structure after each step, and at the end of some histories what strangers
// say.
#include "fuzz/soak/history.h"

namespace media_adapter::soak {
namespace {

// A path as mtools spells it: a long name in Latin-1, a short one in code page 850.
std::string Foreign(std::string path) {
  const bool isLong = NameIn(path).find(' ') != std::string::npos;
  std::ranges::replace(path, '\\', '/');
  const size_t at = path.find('\345');
  return at == std::string::npos ? path : path.replace(at, 1, isLong ? "\xC3\xA5" : "\xC3\x95");
}

}  // namespace

void History::Look() {
  std::vector<bool> owned(fat_.size());
  size_t entries = 1;
  for (auto& [key, item] : items_) {
    if (item.isBroken) continue;
    const bool isFolder = item.isFolder;
    if (isFolder) LookInto(item);
    if (isFolder) entries += item.folder.entries.size() - (key.empty() ? 0 : 2);
    const uint32_t first = !isFolder                   ? sim::ClusterIn(item.entry.slot)
                           : item.folder.chain.empty() ? 0
                                                       : item.folder.chain.front();
    const Clusters chain = item.isFrozen ? item.folder.chain : volume_->Chain(fat_, first);
    const size_t clusters = (item.content.size() + volume_->ClusterSize() - 1) / volume_->ClusterSize();
    Require(isFolder ? chain == item.folder.chain : chain.size() == clusters, "the chain of", item.path);
    Require(isFolder || item.entry.Size() == item.content.size(), "the size of", item.path);
    Require(item.isFrozen || chain.empty() || fat_[chain.back()] == kEnd, "the end of", item.path);
    for (const uint32_t c : chain) {
      Require(!owned[c], "a cluster belongs to another, too", item.path);
      owned[c] = true;
    }
  }
  Require(entries == items_.size(), "an item is missing");
  std::erase_if(lost_, [&](uint32_t c) { return owned[c] || fat_[c] == 0; });
  for (uint32_t c = 2; c < fat_.size(); ++c) {
    if (fat_[c] != 0 && fat_[c] != kBad && !owned[c]) Require(lost_.contains(c), "a cluster is lost", c);
  }
}

void History::LookInto(Item& folder) {
  const Folder& now = folder.folder = volume_->ReadFolder(folder.folder.chain);
  const bool isRoot = folder.path.empty();
  const auto hasDots = [&] {
    return HasDots(now, items_.at(Key(FolderOf(folder.path))), ReadU32(folder.entry.slot, slot::kCreation));
  };
  Require(isRoot || hasDots(), "the dots of", folder.path);
  std::set<std::string> names;
  std::set<size_t> places = folder.orphans;
  folder.hasRemains = !folder.orphans.empty();
  for (const Entry& entry : now.entries) {
    places.insert(entry.places.begin(), entry.places.end());
    Require(names.emplace(entry.slot.begin(), entry.slot.begin() + 11).second, "a short name twice in", folder.path);
    if (!isRoot && entry.places.back() < 2) continue;
    const Item* item = Find(folder.path + "\\" + entry.name);
    Require(item != nullptr && item->entry == entry, "the entry", entry.name);
    folder.hasRemains = folder.hasRemains || item->isBroken;
  }
  for (size_t i = 0; i < now.slots.size(); ++i) {
    Require(!IsLongName(now.slots[i]) || places.contains(i), "a long-name slot is nobody's", i);
    const bool isGap = now.slots[i][0] == 0 && !places.empty() && i < *places.rbegin();
    Require(!isGap || folder.hasRemains, "to others the folder ends at a slot before its last", i);
  }
}

// `created`: time and date of its own entry.
bool History::HasDots(const Folder& folder, const Item& parent, uint32_t created) const {
  const uint32_t up = parent.path.empty() ? 0 : parent.folder.chain.front();
  const auto isDot = [&](size_t place, const char* name, uint32_t cluster) {
    const Entry& entry = folder.entries[place];
    return entry.name == name && entry.places.back() == place && entry.slot[slot::kAttributes] == slot::kFolder &&
           entry.Size() == 0 && sim::ClusterIn(entry.slot) == cluster &&
           ReadU32(entry.slot, slot::kCreation) == created && ReadU32(entry.slot, slot::kWrite) == created &&
           ReadU16(entry.slot, slot::kAccessDate) == created >> 16;
  };
  return folder.entries.size() >= 2 && isDot(0, ".", folder.chain.front()) && isDot(1, "..", up);
}

// ---- The end

// The volume without what the failures left, and with a second FAT like the first, which is never written.
sim::VolumeImage History::WithoutRemains() const {
  sim::VolumeImage image = *disk_;
  const sim::VolumeView view(image);
  const auto release = [&](const Folder& folder, size_t place) {
    image.At(volume_->SectorOfSlot(folder.chain, place))[place % 16 * sizeof(Slot)] = 0xE5;
  };
  for (const auto& [key, item] : items_) {
    for (size_t place = 0; item.hasRemains && place < item.folder.slots.size(); ++place) {
      if (item.folder.slots[place][0] == 0 || item.orphans.contains(place)) release(item.folder, place);
    }
    if (item.isFrozen) view.SetLink(item.folder.chain.back(), kEnd);
    if (!item.isBroken) continue;
    for (const size_t place : item.entry.places) release(items_.at(Key(FolderOf(item.path))).folder, place);
  }
  for (const uint32_t c : lost_) view.SetLink(c, 0);
  for (uint32_t i = volume_->fat; volume_->fats == 2 && i < volume_->fat + volume_->fatSectors; ++i) {
    image.At(i + volume_->fatSectors) = image.At(i);
  }
  return image;
}

void History::JudgeEnd() {
  sim::VolumeImage image = WithoutRemains();
  for (const auto& complaint : sim::FsckComplaints(image, start_)) Require(false, "fsck.fat", complaint);
  auto tree = sim::ReadTree(image, start_);
  for (const auto& [key, item] : items_) {
    if (item.isBroken || key.empty()) continue;
    const auto found = tree.find(Foreign(item.path));
    Require(found != tree.end() && found->second.isFolder == item.isFolder, "mtools do not find", item.path);
    const Slot& slot = item.entry.slot;
    Require(item.isFolder || (found->second.content == item.content &&
                              Moment(found->second.modified).Stamp() == ReadU32(slot, slot::kWrite)),
            "mtools read otherwise", item.path);
    tree.erase(found);
  }
  Require(tree.empty(), "items that only mtools find", tree.size());
  ++totals_.judged;
}

}  // namespace media_adapter::soak

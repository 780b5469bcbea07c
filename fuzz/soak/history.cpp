// The user's side of a history: what is done next, what it is to leave, and how it is asked of the library. The judging
// is in judge.cpp and structure.cpp.
#include "fuzz/soak/history.h"

#include <algorithm>
#include <filesystem>
#include <regex>

#include "api/media_adapter.h"
#include "worker/library.h"

namespace media_adapter::soak {

using namespace std::chrono_literals;

namespace {

constexpr const char* kPassword = "secret";
constexpr const char* kKinds[] = {"put", "get", "delete", "mkdir", "list", "format"};
constexpr size_t kMaxPath = 259;
constexpr size_t kMaxRequests = 50000;  // of one step

// Few different ones, so that they meet again. What a failure cuts to its first 13 characters is unlike all others.
std::string AnyName(Choices& random) {
  static const std::regex separator("\\|");
  static const std::string all =
      "PLAIN#.TXT|lower#.txt|BASE#.low|MiXed#.Txt|noext#|two # words.document| leading#|a.b.c.#|..two#|+,;=[]#.x|"
      ".profile#|thirteenchr#x|#fourteen chars|twenty # sixth characters|\345e#|\345 long name #|#(~!$%&'@^`{}-_)";
  static const std::vector<std::string> names(std::sregex_token_iterator(all.begin(), all.end(), separator, -1), {});
  std::string name = random.OneIn(8) ? "#" + std::string(254, 'w') : random.Of(names);
  name.replace(name.find('#'), 1, 1, static_cast<char>('0' + random.Below(4)));
  return random.OneIn(4) ? Key(name) : name;
}

bool NeedsLongName(const std::string& name) {
  static const std::regex plain(
      "([^a-z.+,;=[\\] ]{1,8}|[^A-Z.+,;=[\\] ]{1,8})(\\.([^a-z.+,;=[\\] ]{1,3}|[^A-Z.+,;=[\\] ]{1,3}))?");
  return !std::regex_match(name, plain);
}

void MakeLocal(const std::string& path, const Bytes& content, int64_t modified, bool isReadOnly) {
  std::filesystem::remove(path);
  sim::WriteWholeFile(path, content);
  sim::SetLastWrite(path, modified);
  if (isReadOnly) std::filesystem::permissions(path, std::filesystem::perms::owner_read);
}

}  // namespace

std::vector<Shape> MakeShapes() {
  std::vector<Shape> shapes;
  for (const sim::VolumeShape& shape :
       {sim::VolumeShape{16, 1, 0, 2, 0, 64}, sim::VolumeShape{16, 2, 0, 1, 63, 512},
        sim::VolumeShape{16, 8, 0, 1, 0, 128}, sim::VolumeShape{16, 64, 0, 1, 0, 128}, sim::VolumeShape{32, 1},
        sim::VolumeShape{32, 2, 0, 2}, sim::VolumeShape{32, 8, 0, 1, 2048}, sim::VolumeShape{32, 64}}) {
    shapes.push_back({shape, sim::Made(shape)});
  }
  return shapes;
}

bool RunSeed(uint64_t seed, const std::vector<Shape>& shapes, bool isJudged, Totals& totals) {
  const Shape& shape = shapes[seed % shapes.size()];
  History history(seed, shape, totals);
  try {
    history.Run(isJudged);
    return true;
  } catch (const std::runtime_error& error) {
    std::printf("FAT%d, %u sectors a cluster\n%s%s; again: soak --first %llu --seeds 1\n", shape.shape.fatBits,
                shape.shape.sectorsPerCluster, history.Story().c_str(), error.what(),
                static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    return false;
  }
}

History::History(uint64_t seed, const Shape& shape, Totals& totals)
    : random_(seed), start_(shape.shape.partitionStart), totals_(totals) {
  setenv("TZ", "UTC", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  tzset();
  std::filesystem::current_path(folder_.Path());
  for (const char* name : {"u", "d"}) std::filesystem::create_directory(name);
  world_.keepsLog = false;
  auto disk = std::make_unique<Disk>(shape.image);
  disk_ = disk.get();
  const simulator::DeviceIdentity identity{{127, 0, 0, 11}, {2, 0, 0, 0, 0, 11}, "device", kPassword};
  auto& device = world_.Attach(std::make_unique<simulator::DeviceModel>(identity, std::move(disk)));
  volume_.emplace(*disk_);
  faults_.emplace(world_, device, random_);
  world_.fate = [this](const sim::LoggedDatagram& datagram) { return faults_->Touch(datagram); };
  Fill();
  fat_ = volume_->Fat();
  items_[""].folder = volume_->ReadFolder(volume_->is32 ? Clusters{2} : Clusters{});
  StartLibrary();
  Require(API_Search("")->deviceCount == 1, "the device is not found");
}

History::~History() {
  StopLibrary();
  std::filesystem::current_path("/");
}

// Marks clusters as bad: on most volumes many of the first ones, so that chains go from one FAT sector to another; on
// some nearly all.
void History::Fill() {
  const size_t kind = random_.Below(4);
  const uint32_t scattered = 6 * volume_->linksPerSector;
  const uint32_t end = kind == 0 ? 0 : kind == 3 ? volume_->lastCluster + 1 : scattered;
  const size_t isFreeOneIn = random_.Of(std::array<size_t, 3>{8, 30, 100});
  for (uint32_t c = volume_->is32 ? 3 : 2; c < end; ++c) {
    if (c >= scattered || !random_.OneIn(isFreeOneIn)) volume_->SetLink(c, kBad);
  }
}

void History::Run(bool isJudged) {
  for (size_t steps = 20 + random_.Below(40); steps > 0; --steps) {
    if (random_.OneIn(3)) faults_->Change();
    Do(Choose());
    CleanUp();
  }
  faults_->Stop();
  for (const auto& [key, item] : items_) {
    if (!item.isBroken && !item.isFrozen) Do({.kind = item.isFolder ? Kind::List : Kind::Get, .path = item.path});
  }
  if (isJudged) JudgeEnd();
}

// What a careful user does after a failure, under the same faults or without.
void History::CleanUp() {
  for (;;) {
    const auto broken =
        std::ranges::find_if(items_, [](const auto& item) { return item.second.isBroken && !item.second.isFolder; });
    if (!isHalfCleared_ && broken == items_.end()) return;
    if (random_.OneIn(2)) faults_->Stop();
    Do(isHalfCleared_ ? Step{.kind = Kind::Format} : Step{.kind = Kind::Delete, .path = broken->second.path});
  }
}

// ---- Choosing

// Something that is there, or a new name in a folder, or rarely in what is no folder.
std::string History::ChoosePath(Kind kind) {
  const auto any = [&]() -> const Item& {
    return std::next(items_.begin(), static_cast<ptrdiff_t>(random_.Below(items_.size())))->second;
  };
  const bool isForOld = kind == Kind::Get || kind == Kind::Delete;
  if (kind == Kind::List || (isForOld ? !random_.OneIn(8) : random_.OneIn(3))) return any().path;
  std::string folder = random_.OneIn(40) ? "\\nowhere" : "";
  if (random_.OneIn(2)) {
    const Item* item = &any();
    for (size_t tries = 2 + random_.Below(20); tries > 0 && !item->isFolder; --tries) item = &any();
    folder = item->path;
  }
  return folder + "\\" + AnyName(random_);
}

History::Step History::Choose() {
  using enum Kind;
  constexpr Kind kMany[] = {Put, Put, Put, Put, Put, Put, Get, Get, Delete, Delete, MakeFolder, List};
  const size_t cluster = volume_->ClusterSize();
  for (size_t tries = 0; tries < 100 && !random_.OneIn(150); ++tries) {
    Step step{.kind = random_.Of(kMany)};
    step.path = ChoosePath(step.kind);
    if (step.kind == Put) {
      if (random_.OneIn(3)) step.path = FolderOf(step.path) + "\\" + Key(NameIn(step.path));
      const size_t any = random_.Below(30000), most = random_.OneIn(30) ? 100000 : 33000;
      const size_t sizes[] = {0, 1, 511, 512, 513, cluster - 1, cluster, cluster + 1, 3 * cluster + 7, any, any, any};
      step.content = sim::Pattern(std::min(random_.Of(sizes), most), static_cast<uint32_t>(random_.Below(1000)));
      step.attributes = static_cast<uint8_t>(0x20 + (NameIn(step.path)[0] == '.' ? 2 : 0) + (random_.OneIn(5) ? 1 : 0));
      step.modified = random_.OneIn(20) ? 1000 : 1000000001 + static_cast<int64_t>(random_.Below(1000000000));
    }
    if (IsSensible(step)) return step;
  }
  return {.kind = Format};
}

bool History::IsSensible(const Step& step) {
  if (NameIn(step.path).empty()) return step.kind == Kind::List && !items_[""].isFrozen;
  const Item* item = Find(step.path);
  const Item* folder = Find(FolderOf(step.path));
  if (avoided_.contains(Key(step.path)) || (folder != nullptr && folder->isBroken)) return false;
  if (step.kind == Kind::List) return item->isFolder && !item->isBroken && !item->isFrozen;
  if (step.kind == Kind::Get && item != nullptr) return !item->isFolder;
  // Only what is found before a frozen folder's end is looked for in it.
  const bool isFrozen = folder != nullptr ? folder->isFrozen : items_[""].isFrozen;
  return !isFrozen || (item != nullptr && step.kind != Kind::MakeFolder);
}

// ---- Planning

History::Item* History::Find(const std::string& path) {
  const auto item = items_.find(Key(path));
  return item == items_.end() ? nullptr : &item->second;
}

History::Plan History::PlanFor(const Step& step) {
  Plan plan{.fat = fat_};
  const bool isList = step.kind == Kind::List, isFormat = step.kind == Kind::Format;
  if (isFormat) PlanFormat(plan);
  if (isList) plan.item = Find(step.path);
  if (!isFormat && !isList) plan.status = PlanItem(step, plan);
  return plan;
}

uint32_t History::PlanItem(const Step& step, Plan& plan) {
  const bool isPut = step.kind == Kind::Put, isMaking = step.kind == Kind::MakeFolder;
  if (!isPut && step.path.size() > kMaxPath) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;
  plan.name = NameIn(step.path);
  if (isMaking) {
    plan.name.erase(0, plan.name.find_first_not_of(' '));
    if (plan.name.find('\345') != std::string::npos) return MEDIA_ADAPTER_INVALID_PATH;
  }
  plan.folder = Find(FolderOf(step.path));
  if (plan.folder == nullptr || !plan.folder->isFolder) return MEDIA_ADAPTER_INVALID_PATH;
  if (step.path.size() > kMaxPath) return MEDIA_ADAPTER_INVALID_PATH_LENGTH;
  plan.item = Find(FolderOf(step.path) + "\\" + plan.name);
  if (plan.item == nullptr) {
    if (!isPut && !isMaking) return MEDIA_ADAPTER_INVALID_PATH;
    const size_t count = 1 + (NeedsLongName(plan.name) ? (plan.name.size() + 12) / 13 : 0);
    const uint32_t status = PlanPlaces(plan, count);
    return status != 0 ? status : PlanContent(plan, isMaking ? 1 : step.content.size());
  }
  if (step.kind == Kind::Get) return 0;
  if (isMaking) return MEDIA_ADAPTER_NAME_IN_USE;
  if (plan.item->isFolder) {
    return isPut ? MEDIA_ADAPTER_CANNOT_OVERWRITE_DIRECTORY : MEDIA_ADAPTER_CANNOT_DELETE_DIRECTORY;
  }
  const Entry& entry = plan.item->entry;
  plan.places = isPut ? std::vector{entry.places.back()} : entry.places;
  if (entry.Size() != 0) plan.freed = volume_->Chain(fat_, sim::ClusterIn(entry.slot));
  for (const uint32_t c : plan.freed) plan.fat[c] = 0;
  return isPut ? PlanContent(plan, step.content.size()) : 0;
}

std::optional<uint32_t> History::FreeCluster(const Clusters& fat) const {
  const auto end = fat.begin() + volume_->lastCluster + 1;
  const auto free = std::find(fat.begin() + 2, end, 0U);
  return free == end ? std::nullopt : std::optional(static_cast<uint32_t>(free - fat.begin()));
}

// The first run of so many free slots that does not begin behind a long-name slot; the folder grows until there is one.
uint32_t History::PlanPlaces(Plan& plan, size_t count) const {
  const auto& slots = plan.folder->folder.slots;
  const Clusters& chain = plan.folder->folder.chain;
  bool isBehindLongName = false;
  for (size_t i = 0; plan.places.size() < count; ++i) {
    if (i == slots.size() + plan.growth.size() * volume_->ClusterSize() / sizeof(Slot)) {
      const auto fresh = FreeCluster(plan.fat);
      if (chain.empty() || !fresh) {
        plan.places.clear();
        return chain.empty() ? MEDIA_ADAPTER_NO_FREE_DIRECTORY_ENTRIES : MEDIA_ADAPTER_NOT_ENOUGH_MEMORY;
      }
      plan.fat[plan.growth.empty() ? chain.back() : plan.growth.back()] = *fresh;
      plan.fat[*fresh] = kEnd;
      plan.growth.push_back(*fresh);
    }
    const bool isFree = i >= slots.size() || IsFree(slots[i]);
    plan.places.push_back(i);
    if (!isFree || isBehindLongName) plan.places.clear();
    isBehindLongName = !isFree && IsLongName(slots[i]);
  }
  return 0;
}

// The first free clusters, in a chain.
uint32_t History::PlanContent(Plan& plan, size_t bytes) const {
  Clusters fat = plan.fat;
  for (size_t size = 0; size < bytes; size += volume_->ClusterSize()) {
    const auto cluster = FreeCluster(fat);
    if (!cluster) {
      plan.places.clear();
      plan.content.clear();
      return MEDIA_ADAPTER_NOT_ENOUGH_MEMORY;
    }
    if (!plan.content.empty()) fat[plan.content.back()] = *cluster;
    fat[*cluster] = kEnd;
    plan.content.push_back(*cluster);
  }
  plan.fat = std::move(fat);
  return 0;
}

// Clears the FAT sectors with entries of the device's clusters, and one more where they end with a sector.
void History::PlanFormat(Plan& plan) const {
  const uint32_t entries = (disk_->SectorCount() - 1 - volume_->data) / volume_->sectorsPerCluster + 2;
  const size_t cleared = size_t{entries / volume_->linksPerSector + 1} * volume_->linksPerSector;
  Require(cleared <= plan.fat.size(), "the FAT of this shape is too short to be cleared");
  std::fill(plan.fat.begin() + 2, plan.fat.begin() + static_cast<ptrdiff_t>(cleared), 0U);
  if (volume_->is32) plan.fat[2] = kEnd;
}

// ---- Doing

void History::Do(const Step& step) {
  world_.localTime = {2024, 2, 29, 13, 14, static_cast<uint8_t>(random_.Below(60))};
  now_ = 1709212440 + world_.localTime.second;
  const Plan plan = PlanFor(step);
  story_ += std::string(kKinds[static_cast<size_t>(step.kind)]) + " " + step.path + " (" +
            std::to_string(step.content.size()) + " bytes; " + faults_->Text() + "): ";
  disk_->written.clear();
  faults_->BeginStep();
  const sim::Time start = world_.Now();
  const uint32_t status = Call(step);
  WaitForWorker(start);
  story_ += std::to_string(status) + ", planned " + std::to_string(plan.status) + "\n";
  ++totals_.steps;
  if (status != plan.status) ++totals_.failures;
  Judge(step, plan, status);
}

uint32_t History::Call(const Step& step) {
  const std::string& path = step.path;
  const std::string local = "u/" + NameIn(path);
  std::string folder = FolderOf(path);
  const auto tag = static_cast<uint32_t>(random_.Below(4));
  uint32_t progress = 0;
  if (step.kind == Kind::Delete) return API_RFADelete(path.c_str(), tag, kPassword, 0)->status;
  if (step.kind == Kind::MakeFolder) return API_RFACreateDirectory(path.c_str(), tag, kPassword, 0)->status;
  if (step.kind == Kind::Format) return API_RFAFormat(tag, kPassword, 0)->status;
  if (step.kind == Kind::Put) {
    MakeLocal(local, step.content, step.modified, (step.attributes & 1) != 0);
    if (folder.empty() || random_.OneIn(2)) folder += "\\";
    return API_RFAWriteData(local.c_str(), folder.data(), tag, kPassword, 0)->status;
  }
  folder = "d";
  return API_RFAReadDataExt(path.empty() ? "\\" : path.c_str(), folder.data(), tag, kPassword, 0, &progress)->status;
}

// A call ends after 60 s, what it started may go on. Nothing is silent for longer than its longest timer.
void History::WaitForWorker(sim::Time start) {
  Require(world_.Now() - start <= 60s + 1ms && faults_->Requests() < kMaxRequests, "the call took too long");
  if (world_.Now() - start < 60s) return;
  for (size_t before = 0; before != faults_->Requests();) {
    Require(faults_->Requests() < kMaxRequests, "the request does not end");
    before = faults_->Requests();
    world_.Advance(25s);
  }
}

}  // namespace media_adapter::soak

// One random history: a volume, a device with it, the library, and a careful user who puts, gets and deletes files,
// makes folders, lists and clears, under faults that come and go. Each step is judged.
//
// The oracle is a plain model: the items with their contents, and for each step a plan of what it is to leave - the
// status, the FAT, the slots of its folder. Status 0 means that the plan has come true, exactly. After a failure each
// FAT entry and each slot that the plan names is as before or as planned, what it frees may be free, and everything
// else is as it was; only the item in hand may be broken. Like the user, the history deletes a file that a failed put
// left before it writes anything else, leaves alone a folder that a failure left half made or half grown, and repeats a
// clearing until it succeeds. Names that do not find themselves are not used.
#pragma once

#include <atomic>
#include <map>
#include <optional>
#include <stdexcept>

#include "fuzz/faults.h"
#include "fuzz/soak/volume.h"

namespace media_adapter::soak {

using fuzz::Choices;
using fuzz::Faults;

// A shape's volume, made once and copied.
struct Shape {
  sim::VolumeShape shape;
  sim::VolumeImage image;
};

struct Totals {
  std::atomic<uint64_t> steps, failures, judged;
};

// The volumes that histories run on, by mkfs.fat.
std::vector<Shape> MakeShapes();

// Runs the history that this number decides. True when nothing was wrong; otherwise its steps, what broke and how to
// run it again are printed.
bool RunSeed(uint64_t seed, const std::vector<Shape>& shapes, bool isJudged, Totals& totals);

class History {
 public:
  History(uint64_t seed, const Shape& shape, Totals& totals);
  ~History();
  History(const History&) = delete;
  History& operator=(const History&) = delete;

  // Throws std::runtime_error with what was wrong. `isJudged`: fsck.fat and mtools judge the end.
  void Run(bool isJudged);
  const std::string& Story() const { return story_; }  // the steps so far, a line each

 private:
  enum class Kind : uint8_t { Put, Get, Delete, MakeFolder, List, Format };
  struct Item {
    std::string path;  // as the volume spells it; empty for the root
    bool isFolder = true;
    bool isBroken = false;  // half made: a file that waits to be deleted, a folder that nobody enters
    Bytes content = {};
    Entry entry = {};
    Folder folder = {};             // what a folder holds
    std::set<size_t> orphans = {};  // its long-name slots that a failed delete left
    bool hasRemains = false;        // those, something broken, or slots that were reserved before it
    bool isFrozen = false;          // growing it failed: behind its chain stands what once was there
  };
  struct Step {
    Kind kind;
    std::string path = {};
    Bytes content = {};
    uint8_t attributes = 0x10;
    int64_t modified = 0;  // seconds since 1970; of a file to put
  };
  // What a step is to leave.
  struct Plan {
    uint32_t status = 0;
    Clusters fat;
    Item* folder = nullptr;           // in which the item lies
    Item* item = nullptr;             // that is there before
    std::string name = {};            // of a new one
    std::vector<size_t> places = {};  // slots of the folder that change; the short entry is the last
    Clusters growth = {}, content = {}, freed = {};
  };

  void Fill();
  Step Choose();
  std::string ChoosePath(Kind kind);
  bool IsSensible(const Step& step);
  void Do(const Step& step);
  void CleanUp();
  uint32_t Call(const Step& step);
  void WaitForWorker(sim::Time start);

  Item* Find(const std::string& path);
  Plan PlanFor(const Step& step);
  uint32_t PlanItem(const Step& step, Plan& plan);
  uint32_t PlanPlaces(Plan& plan, size_t count) const;
  uint32_t PlanContent(Plan& plan, size_t bytes) const;
  void PlanFormat(Plan& plan) const;
  std::optional<uint32_t> FreeCluster(const Clusters& fat) const;

  void Judge(const Step& step, const Plan& plan, uint32_t status);
  std::set<uint32_t> SectorsOf(const Step& step, const Plan& plan) const;
  Clusters JudgeFat(const Plan& plan) const;
  void JudgeRead(const Step& step, const Plan& plan) const;
  void JudgeFormat(const Plan& plan, Clusters fat, uint32_t status);
  void JudgeChange(const Step& step, const Plan& plan, Clusters fat, bool mustBeDone);
  Folder SoundPart(const Step& step, const Plan& plan, const Clusters& fat, bool& isFrozen) const;
  bool IsPlanned(const Step& step, const Plan& plan, size_t place, const Folder& now) const;
  bool IsPlannedShort(const Step& step, const Plan& plan, const Slot& slot) const;
  bool HasContent(const Step& step, const Plan& plan) const;
  void KeepItem(const Step& step, const Plan& plan, bool isThere, bool isWhole, bool isUntouched);
  void Look();
  void LookInto(Item& folder);
  bool HasDots(const Folder& folder, const Item& parent, uint32_t created) const;
  void JudgeEnd();
  sim::VolumeImage WithoutRemains() const;

  const sim::TempFolder folder_;  // the current one meanwhile: local files are put from its "u" and got into its "d"
  Choices random_;
  sim::SimWorld world_;
  uint32_t start_;  // of the volume
  Totals& totals_;
  Disk* disk_ = nullptr;
  std::optional<Faults> faults_;
  std::optional<Volume> volume_;
  std::map<std::string, Item> items_;  // by the path in lower case
  std::set<std::string> avoided_;      // such paths whose entries a failure left under another name
  Clusters fat_;
  std::set<uint32_t> lost_;  // clusters that failures left in use
  bool isHalfCleared_ = false;
  int64_t now_ = 0;  // of the host, seconds since 1970
  std::string story_;
};

inline void Require(bool isTrue, const char* what, const std::string& about = {}) {
  if (!isTrue) throw std::runtime_error(what + (about.empty() ? about : ": " + about));
}
inline void Require(bool isTrue, const char* what, size_t number) {
  if (!isTrue) Require(false, what, std::to_string(number));
}

inline std::string Key(std::string path) {
  for (char& c : path) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return path;
}
inline std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('\\')); }
inline std::string NameIn(const std::string& path) { return path.substr(path.rfind('\\') + 1); }

}  // namespace media_adapter::soak

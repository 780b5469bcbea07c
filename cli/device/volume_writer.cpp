#include "cli/device/volume_writer.h"

#include <algorithm>
#include <cstring>

#include "cli/console/interrupts.h"
#include "cli/console/progress_text.h"
#include "cli/device/comparison.h"
#include "cli/device/device_choice.h"
#include "cli/device/unfinished.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

constexpr const char* kNotice = "\nmedia-adapter: the running request comes to its end first; Ctrl-C again stops it\n";

// The library's own statuses up to that of a full volume come before anything is written that a name leads to.
bool MayHaveWritten(const Answer& answer) {
  return answer.status &&
         (*answer.status < MEDIA_ADAPTER_NAME_IN_USE || *answer.status > MEDIA_ADAPTER_NOT_ENOUGH_MEMORY);
}

void Explain(Answer& answer, const std::string& detail) {
  answer.detail.append(answer.detail.empty() ? "" : "; ").append(detail);
}

std::string Parting(const std::string& what) { return "\nmedia-adapter: stopped at once: " + what + "\n"; }

std::string HowToMend(const std::string& path) {
  return DisplayPath(path) + " may be incomplete: delete it (rm) before anything else is written to this device";
}

constexpr const char* kMendFolder =
    "may be incomplete: have the volume checked by a PC, or format it, before anything else is written to this device";

}  // namespace

std::string VolumeWriter::Mac() const { return MacText(*session_.Device()); }

int VolumeWriter::Begin() {
  if (const int code = session_.Prepare(); code != kSuccess) return code;
  DeviceLock& lock = locks_.try_emplace(Mac(), Mac()).first->second;
  if (!lock.Take(false)) {
    const std::string device = session_.DescribeDevice();
    if (!doesWait) {
      return output_.Failed("device " + device, Problem("another run of media-adapter works on it; nothing was sent"));
    }
    output_.Error("waiting: another run of media-adapter works on device " + device);
    if (!lock.Take(true)) return output_.Failed("device " + device, Problem("interrupted; nothing was sent"));
  }
  TakeNote();
  return kSuccess;
}

// An entry that is not the one noted was stored by another hand since, or nothing was stored at all.
void VolumeWriter::TakeNote() {
  const UnfinishedNote note(Mac());
  const std::optional<UnfinishedFile> file = note.Read();
  if (!file || leftovers_.contains(Mac())) return;
  const DevicePathParts parts = SplitDevicePath(file->path);
  const Listing listing = session_.List(parts.folder);
  if (!listing.answer.IsOk() && listing.answer.status != MEDIA_ADAPTER_INVALID_PATH) return;
  const bool isThere = std::ranges::any_of(listing.entries, [&](const ListingEntry& entry) {
    const std::string entryName(entry.name, strnlen(entry.name, sizeof entry.name));
    return FoldDeviceName(entryName) == FoldDeviceName(parts.name) && entry.size == file->size &&
           ListedTime(entry) == file->time;
  });
  if (!isThere) return note.Remove();
  leftovers_[Mac()] = {Kind::File, file->path};
  output_.Error(DisplayPath(file->path) +
                " was left incomplete by an earlier run, and goes before anything is written");
}

bool VolumeWriter::IsUnfinished(const std::string& path) const {
  const auto leftover = leftovers_.find(Mac());
  return leftover != leftovers_.end() && leftover->second.kind == Kind::File &&
         FoldDeviceName(leftover->second.path) == FoldDeviceName(path);
}

bool VolumeWriter::IsBlocked() const { return leftovers_.contains(Mac()); }

void VolumeWriter::ForgetLeftover() {
  leftovers_.erase(Mac());
  UnfinishedNote(Mac()).Remove();
}

void VolumeWriter::End() {
  if (session_.Device() != nullptr && !leftovers_.contains(Mac())) locks_.erase(Mac());
}

// Ok when nothing is left of a failed request. Otherwise what it left is the reason that nothing is written.
Answer VolumeWriter::Settle() {
  const auto leftover = leftovers_.find(Mac());
  if (leftover == leftovers_.end()) return {MEDIA_ADAPTER_OK, {}};
  const auto& [kind, path] = leftover->second;
  Answer answer;
  if (kind == Kind::File) {
    answer = session_.Remove(path);
    Explain(answer, "nothing is written: " + HowToMend(path));
  } else if (kind == Kind::Folder) {
    answer = session_.List(path).answer;
    if (answer.IsOk()) answer = Problem("nothing is written");
    Explain(answer, "the folder " + DisplayPath(path) + " " + kMendFolder);
  } else {
    return Problem("nothing is written: the volume was cleared in part; format it first");
  }
  if (!answer.IsOk() && answer.status != MEDIA_ADAPTER_INVALID_PATH) return answer;
  ForgetLeftover();
  return {MEDIA_ADAPTER_OK, {}};
}

void VolumeWriter::DeleteLeftover(const std::string& path, Answer& answer) {
  const Answer removed = session_.Remove(path);
  if (removed.IsOk() || removed.status == MEDIA_ADAPTER_INVALID_PATH) return ForgetLeftover();
  leftovers_[Mac()] = {Kind::File, path};
  Explain(answer, HowToMend(path));
}

Answer VolumeWriter::Put(const std::string& localPath, uint64_t size, const std::string& folder,
                         const std::string& name) {
  const InterruptWatch watch(kNotice);
  if (Answer answer = Settle(); !answer.IsOk()) return answer;
  const std::string path = JoinDevicePath(folder, name);
  const PartingWords words(Parting(HowToMend(path)));
  Answer removed = session_.Remove(path);
  if (removed.status == MEDIA_ADAPTER_CANNOT_DELETE_DIRECTORY) {
    return {MEDIA_ADAPTER_CANNOT_OVERWRITE_DIRECTORY, "A directory cannot be overwritten by a file"};
  }
  if (!removed.IsOk() && removed.status != MEDIA_ADAPTER_INVALID_PATH) {
    Explain(removed, "nothing was written");
    return removed;
  }
  const std::optional<LocalState> local = LookAt(LocalPath(localPath));
  UnfinishedNote(Mac()).Write({path, size, local ? local->stored : WallTime()});
  Answer answer = session_.WriteFile(localPath, folder);
  if (answer.IsOk() || !MayHaveWritten(answer)) ForgetLeftover();
  if (answer.IsOk()) return answer;
  if (answer.status == MEDIA_ADAPTER_INVALID_PATH) {
    Explain(answer,
            "the local file cannot be read any more, or " + DisplayPath(folder) + " is no folder on the device");
  }
  if (answer.status == MEDIA_ADAPTER_NOT_ENOUGH_MEMORY) {
    Explain(answer, "the volume is full, " + SizeText(size) + " are needed");
  }
  if (removed.IsOk()) Explain(answer, "the file that was there has been deleted");
  if (MayHaveWritten(answer)) DeleteLeftover(path, answer);
  return answer;
}

Answer VolumeWriter::Remove(const std::string& path) {
  const InterruptWatch watch(kNotice);
  const auto leftover = leftovers_.find(Mac());
  const bool isLeftover = leftover != leftovers_.end() && leftover->second.path == path;
  Answer answer = Settle();
  if (!answer.IsOk() || isLeftover) return answer;
  const PartingWords words(Parting(DisplayPath(path) + " may be deleted in part; delete it again (rm)"));
  return session_.Remove(path);
}

Answer VolumeWriter::MakeFolder(const std::string& path) {
  const InterruptWatch watch(kNotice);
  Answer answer = Settle();
  if (!answer.IsOk()) return answer;
  // A device that does not answer at all has nothing half done.
  if (answer = session_.Connect(); !answer.IsOk()) return answer;
  const PartingWords words(Parting("the folder " + DisplayPath(path) + " " + kMendFolder));
  answer = session_.MakeFolder(path);
  if (answer.status == MEDIA_ADAPTER_NOT_ENOUGH_MEMORY) Explain(answer, "the volume is full, a folder needs a cluster");
  if (answer.IsOk() || !MayHaveWritten(answer)) return answer;
  if (session_.List(path).answer.status != MEDIA_ADAPTER_INVALID_PATH) {
    leftovers_[Mac()] = {Kind::Folder, path};
    Explain(answer, "the folder " + DisplayPath(path) + " " + kMendFolder);
  }
  return answer;
}

Answer VolumeWriter::Format() {
  const InterruptWatch watch(kNotice);
  const PartingWords words(Parting("the volume may be cleared in part; format it again"));
  Answer answer = session_.Format();
  if (answer.IsOk()) {
    ForgetLeftover();
  } else if (MayHaveWritten(answer)) {
    leftovers_[Mac()] = {Kind::Volume, {}};
    Explain(answer, "the volume may be cleared in part; format it again before anything is written to it");
  }
  return answer;
}

}  // namespace media_adapter::cli

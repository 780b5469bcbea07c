#include "cli/device/volume_writer.h"

#include <algorithm>

#include "cli/console/interrupts.h"
#include "cli/console/progress_text.h"
#include "cli/device/comparison.h"
#include "cli/device/device_choice.h"
#include "cli/local/local_text.h"
#include "platform/clock.h"

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
  return TakeNote();
}

int VolumeWriter::TakeNote() {
  const std::optional<Unfinished> change = UnfinishedNote(Mac()).Read();
  if (!change || leftovers_.contains(Mac())) return kSuccess;
  if (Answer answer = Note(*change); !answer.IsOk()) {
    Explain(answer, "what an earlier run has left cannot be looked at; nothing was sent");
    return output_.Failed("device " + session_.DescribeDevice(), answer);
  }
  const auto leftover = leftovers_.find(Mac());
  if (leftover == leftovers_.end()) return kSuccess;
  const auto& [kind, path, size, time] = leftover->second;
  output_.Error(kind == Kind::File
                    ? DisplayPath(path) + " was left incomplete by an earlier run, and goes before anything is written"
                    : "left by an earlier run: " + HowToMend(leftover->second));
  return kSuccess;
}

// Notes what such a change has left, of itself or of the folder that it is in; forgets it when that is nothing. Not ok
// when the device does not tell.
Answer VolumeWriter::Note(const Unfinished& change) {
  for (Unfinished each : {change, Unfinished{Kind::Growth, SplitDevicePath(change.path).folder}}) {
    bool isThere = false;
    if (Answer answer = LookFor(session_, each, isThere); !answer.IsOk()) return answer;
    if (!isThere) continue;
    UnfinishedNote(Mac()).Write(each);
    leftovers_[Mac()] = each;
    return {MEDIA_ADAPTER_OK, {}};
  }
  ForgetLeftover();
  return {MEDIA_ADAPTER_OK, {}};
}

bool VolumeWriter::IsUnfinished(const std::string& path) const {
  const auto leftover = leftovers_.find(Mac());
  if (leftover == leftovers_.end()) return false;
  const std::string folded = FoldDeviceName(path), left = FoldDeviceName(leftover->second.path);
  const Kind kind = leftover->second.kind;
  return kind == Kind::File ? folded == left : kind == Kind::Folder && folded.starts_with(left + '\\');
}

bool VolumeWriter::IsClearedInPart() const {
  const auto leftover = leftovers_.find(Mac());
  return leftover != leftovers_.end() && leftover->second.kind == Kind::Volume;
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
  const Unfinished change = leftover->second;
  const std::string reason = "nothing is written: " + HowToMend(change);
  if (change.kind == Kind::File) {
    Answer removed = session_.Remove(change.path);
    Explain(removed, reason);
    if (!removed.IsOk() && removed.status != MEDIA_ADAPTER_INVALID_PATH) return removed;
  } else if (!Note(change).IsOk() || IsBlocked()) {
    return Problem(reason);
  }
  ForgetLeftover();
  return {MEDIA_ADAPTER_OK, {}};
}

void VolumeWriter::DeleteLeftover(const Unfinished& file, Answer& answer) {
  leftovers_[Mac()] = file;
  Answer removed = session_.Remove(file.path);
  if (removed.status == MEDIA_ADAPTER_INVALID_PATH && Note(file).IsOk()) {
    if (!IsBlocked()) return;
    const Unfinished rest = leftovers_.at(Mac());
    if (rest.kind == Kind::File) removed = session_.Remove(rest.path);
    if (removed.IsOk()) Explain(answer, DisplayPath(rest.path) + ", which it left, has been deleted");
  }
  if (removed.IsOk()) return ForgetLeftover();
  Explain(answer, HowToMend(leftovers_.at(Mac())));
}

// What a deletion that failed has left of the file: its entry goes first, then its space.
std::string VolumeWriter::DescribeRest(const std::string& path, const Answer& answer) {
  const Listing rest = IsOfDevice(answer) ? Listing() : session_.List(path);
  if (rest.isFile) return DisplayPath(path) + " is still there";
  const bool isGone = rest.answer.status == MEDIA_ADAPTER_INVALID_PATH;
  return DisplayPath(path) + (isGone ? " is gone" : " may be gone") + ", and its space may not all be free again";
}

Answer VolumeWriter::Put(const std::string& localPath, uint64_t size, const std::string& folder,
                         const std::string& name) {
  const InterruptWatch watch(kNotice);
  if (Answer answer = Settle(); !answer.IsOk()) return answer;
  const std::optional<LocalState> local = LookAt(LocalPath(localPath));
  const std::string path = JoinDevicePath(folder, name);
  const Unfinished file = {Kind::File, path, size, local ? local->stored : WallTime()};
  const PartingWords words(Parting(HowToMend(file)));
  Answer removed = session_.Remove(path);
  if (removed.status == MEDIA_ADAPTER_CANNOT_DELETE_DIRECTORY) {
    return {MEDIA_ADAPTER_CANNOT_OVERWRITE_DIRECTORY, "A directory cannot be overwritten by a file"};
  }
  if (!removed.IsOk() && removed.status != MEDIA_ADAPTER_INVALID_PATH) {
    Explain(removed, DescribeRest(path, removed) + "; nothing was written in its place");
    return removed;
  }
  UnfinishedNote(Mac()).Write(file);
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
  if (MayHaveWritten(answer)) DeleteLeftover(file, answer);
  return answer;
}

Answer VolumeWriter::Remove(const std::string& path) {
  const InterruptWatch watch(kNotice);
  const auto leftover = leftovers_.find(Mac());
  const bool isLeftover = leftover != leftovers_.end() && leftover->second.path == path;
  Answer answer = Settle();
  if (!answer.IsOk() || isLeftover) return answer;
  const PartingWords words(Parting(DisplayPath(path) + " may be deleted in part; delete it again (rm)"));
  answer = session_.Remove(path);
  if (!answer.IsOk() && MayHaveWritten(answer)) Explain(answer, DescribeRest(path, answer));
  return answer;
}

Answer VolumeWriter::MakeFolder(const std::string& path) {
  const InterruptWatch watch(kNotice);
  Answer answer = Settle();
  if (!answer.IsOk()) return answer;
  // A device that does not answer at all has nothing half done.
  if (answer = session_.Connect(); !answer.IsOk()) return answer;
  const Unfinished folder = {Kind::Folder, path, 0, StoredTime(platform::CurrentLocalTime())};
  const PartingWords words(Parting(HowToMend(folder)));
  UnfinishedNote(Mac()).Write(folder);
  answer = session_.MakeFolder(path);
  if (answer.status == MEDIA_ADAPTER_NOT_ENOUGH_MEMORY) Explain(answer, "the volume is full, a folder needs a cluster");
  if (answer.IsOk() || !MayHaveWritten(answer)) {
    ForgetLeftover();
    return answer;
  }
  leftovers_[Mac()] = folder;
  if (!Note(folder).IsOk() || IsBlocked()) Explain(answer, HowToMend(leftovers_.at(Mac())));
  return answer;
}

Answer VolumeWriter::Format() {
  const InterruptWatch watch(kNotice);
  const Unfinished volume = {Kind::Volume, std::string(kRootPath)};
  const PartingWords words(Parting(HowToMend(volume)));
  UnfinishedNote(Mac()).Write(volume);
  Answer answer = session_.Format();
  if (answer.IsOk()) {
    ForgetLeftover();
  } else if (MayHaveWritten(answer)) {
    leftovers_[Mac()] = volume;
    Explain(answer, HowToMend(volume));
  } else if (const auto earlier = leftovers_.find(Mac()); earlier != leftovers_.end()) {
    UnfinishedNote(Mac()).Write(earlier->second);
  } else {
    UnfinishedNote(Mac()).Remove();
  }
  return answer;
}

}  // namespace media_adapter::cli

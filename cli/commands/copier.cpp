#include "cli/commands/copier.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "cli/commands/fetch.h"
#include "cli/console/interrupts.h"
#include "cli/console/progress_bar.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

constexpr uint8_t kReadOnly = 0x01;
constexpr int kTemporaryNames = 100;

bool IsInside(const std::string& path, const std::string& folder) {
  return folder == kRootPath || FoldDeviceName(path + "\\").starts_with(FoldDeviceName(folder + "\\"));
}

bool IsEqual(const fs::path& first, const fs::path& second) {
  std::ifstream one(first, std::ios::binary), other(second, std::ios::binary);
  std::vector<char> a(1 << 16), b(1 << 16);
  while (one && other) {
    one.read(a.data(), static_cast<std::streamsize>(a.size()));
    other.read(b.data(), static_cast<std::streamsize>(b.size()));
    if (one.gcount() != other.gcount() || !std::equal(a.begin(), a.begin() + one.gcount(), b.begin())) return false;
  }
  return one.eof() && other.eof();
}

void Explain(Answer& answer, const std::string& detail) {
  answer.detail.append(answer.detail.empty() ? "" : "; ").append(detail);
}

}  // namespace

void Copier::Item(const std::string& source, const std::string& folder, const std::string& newName) {
  if (!results_.MayGoOn()) return;
  const Found found = FindItem(context_.session, source);
  if (!found.answer.IsOk()) return results_.Add(source, ExplainMissing(context_.session, source, found.answer));
  if (!found.entry) return results_.Add(source, Problem("in a folder with too many entries to list"));
  const std::string target = JoinDevicePath(folder, newName.empty() ? EntryName(*found.entry) : newName);
  if (!found.isFolder) return CopyOrMove({source, *found.entry}, target);
  if (!options_.isRecursive) return results_.Add(source, Problem("a folder; give -r"));
  if (IsInside(target, source)) return results_.Add(source, Problem("a folder cannot go into itself"));
  Folder(source, target);
}

void Copier::Folder(const std::string& source, const std::string& target) {
  Listing listing = context_.session.List(source);
  Answer answer = listing.answer;
  if (answer.IsOk()) answer = MakeOrTakeFolder(context_, target);
  if (!answer.IsOk()) return results_.Add(source, answer);
  source_ = source;
  target_ = target;
  failures_ = 0;
  Walk(context_.session, source, std::move(listing), *this);
  if (!options_.isMove || !results_.MayGoOn()) return;
  answer = context_.writer.Remove(source);
  if (!answer.IsOk()) {
    answer.detail = failures_ > 0 ? "not all that is in it could be moved"
                                  : "all files are moved; the device keeps their empty folders";
  }
  results_.Add(source, answer);
}

bool Copier::Visit(const WalkItem& item) {
  if (!results_.MayGoOn()) return false;
  const std::string target = target_ + item.path.substr(source_.size());
  if (!IsFolder(item.entry)) CopyOrMove({item.path, item.entry}, target);
  if (!IsFolder(item.entry)) return false;
  const Answer answer = MakeOrTakeFolder(context_, target);
  if (!answer.IsOk()) Fail(item.path, answer);
  return answer.IsOk();
}

void Copier::Fail(const std::string& path, const Answer& answer) {
  ++failures_;
  results_.Add(path, answer);
}

void Copier::CopyOrMove(const File& source, const std::string& target) {
  bool isSkipped = false;
  Answer answer = CheckTarget(source, target, isSkipped);
  if (isSkipped) return;
  if (answer.IsOk()) {
    const bool isSame = FoldDeviceName(source.path) == FoldDeviceName(target);
    answer = isSame ? ChangeCase(source, target) : Replace(source, target);
  }
  if (!answer.IsOk()) return Fail(source.path, answer);
  if (context_.output.isJson) {
    nlohmann::ordered_json item = {
        {"path", DisplayPath(source.path)}, {"to", DisplayPath(target)}, {"size", source.entry.size}};
    item.update(AnswerJson(answer));
    results_.AddJson(std::move(item));
  } else if (options_.isVerbose) {
    context_.output.Line(DisplayPath(source.path) + " -> " + DisplayPath(target));
  }
}

// Whether the file may come to lie at `target`, whatever is there.
Answer Copier::CheckTarget(const File& source, const std::string& target, bool& isSkipped) {
  const std::string name = SplitDevicePath(target).name;
  if (std::string problem = CheckNewName(name); !problem.empty()) return Problem(problem);
  if (!IsSafeLocalName(LocalNameFor(name)) || !IsSafeLocalName(LocalNameFor(EntryName(source.entry)))) {
    return Problem("no name for a local file, by way of which it would go");
  }
  if (target.size() > MEDIA_ADAPTER_MAX_PATH) return Problem("the new path is too long");
  const auto [earlier, isFree] = taken_.try_emplace(FoldDeviceName(target), source.path);
  if (!isFree)
    return Problem("not over " + DisplayPath(target) + ", which has just come from " + DisplayPath(earlier->second));
  const Found found = FindItem(context_.session, target);
  if (found.answer.status == MEDIA_ADAPTER_INVALID_PATH) return {MEDIA_ADAPTER_OK, {}};
  if (!found.answer.IsOk()) return found.answer;
  if (found.isFolder) return Problem("a folder has the name " + DisplayPath(target) + " on the device");
  if (!found.entry) return Problem(DisplayPath(target) + " is in a folder with too many entries to list");
  const bool isSame = FoldDeviceName(source.path) == FoldDeviceName(target);
  const bool isUnchanged = EntryName(*found.entry) == name;
  if (isSame && (!options_.isMove || isUnchanged)) return Problem(DisplayPath(target) + " is the same file");
  if (!isSame && source.entry.firstCluster != 0 && found.entry->firstCluster == source.entry.firstCluster) {
    return Problem(DisplayPath(target) + " shares its contents: have the volume checked by a PC");
  }
  isSkipped = options_.keepsExisting && !isSame;
  return {MEDIA_ADAPTER_OK, {}};
}

// A new spelling of the name: the file takes the way round by another one, so that there is always one whole copy.
Answer Copier::ChangeCase(const File& source, const std::string& target) {
  const std::string folder = SplitDevicePath(source.path).folder;
  std::string between;
  for (int i = 0; i < kTemporaryNames; ++i) {
    between = JoinDevicePath(folder, "moving" + std::to_string(i) + ".tmp");
    if (FindItem(context_.session, between).answer.status == MEDIA_ADAPTER_INVALID_PATH) break;
    between.clear();
  }
  if (between.empty()) return Problem("no free name for the way between");
  Answer answer = Move(source, between);
  if (!answer.IsOk()) return answer;
  File moved = {between, source.entry};
  answer = Move(moved, target);
  if (!answer.IsOk()) Explain(answer, "it is " + DisplayPath(between) + " now");
  return answer;
}

Answer Copier::Replace(const File& source, const std::string& target) {
  return options_.isMove ? Move(source, target) : Put(source, target);
}

// Leaves the file in the private folder, under the target's name.
Answer Copier::Put(const File& source, const std::string& target) {
  const auto [folder, name] = SplitDevicePath(target);
  if (!staging_) staging_.emplace();
  if (staging_->Path().empty()) return Problem("cannot make a temporary folder: " + staging_->Error());
  if (staging_->Path().size() + 1 + name.size() > MEDIA_ADAPTER_MAX_PATH)
    return Problem("the temporary path is too long");
  fs::path local = staging_->Use(SplitDevicePath(source.path).name);
  if (Answer answer = FetchFileShown(context_, source.path, staging_->Path(), source.entry); !answer.IsOk())
    return answer;
  std::error_code error;
  local = staging_->Rename(name, error);
  if (error) return Problem("cannot rename the temporary file: " + ErrorText(error));
  if (const auto time = EntryTime(source.entry)) {
    fs::last_write_time(local, std::chrono::file_clock::from_sys(*time), error);
  }
  const bool isReadOnly = (source.entry.attributes & kReadOnly) != 0;
  if (isReadOnly) fs::permissions(local, fs::perms::owner_write, fs::perm_options::remove, error);
  const ProgressBar bar(DisplayPath(target));
  Answer answer = context_.writer.Put(LocalText(local), source.entry.size, folder, name);
  if (isReadOnly) fs::permissions(local, fs::perms::owner_write, fs::perm_options::add, error);
  return answer;
}

Answer Copier::Move(const File& source, const std::string& target) {
  Answer answer = Put(source, target);
  if (answer.IsOk()) answer = ReadBack(source, target);
  if (!answer.IsOk()) {
    Explain(answer, DisplayPath(source.path) + " stays");
    return answer;
  }
  answer = context_.writer.Remove(source.path);
  if (!answer.IsOk()) Explain(answer, DisplayPath(target) + " is whole");
  return answer;
}

Answer Copier::ReadBack(const File& source, const std::string& target) {
  if (IsInterrupted()) return Problem("interrupted; " + DisplayPath(target) + " has not been compared");
  const std::string name = SplitDevicePath(target).name;
  std::error_code error;
  const fs::path sent = staging_->Rename(FoldDeviceName(name) == FoldDeviceName("sent") ? "put" : "sent", error);
  if (error) return Problem("cannot rename the temporary file: " + ErrorText(error));
  const fs::path back = staging_->UseAnother(name);
  Answer answer = FetchFileShown(context_, target, staging_->Path(), source.entry);
  if (!answer.IsOk()) {
    Explain(answer, DisplayPath(target) + " has not been compared");
    return answer;
  }
  if (IsEqual(sent, back)) return answer;
  const std::string isDeleted = context_.writer.Remove(target).IsOk() ? "it was deleted" : "it could not be deleted";
  return Problem("what came back of " + DisplayPath(target) + " is not what went there; " + isDeleted);
}

}  // namespace media_adapter::cli

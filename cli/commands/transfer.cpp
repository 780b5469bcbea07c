#include "cli/commands/transfer.h"

#include <nlohmann/json.hpp>

#include "cli/commands/items.h"
#include "cli/console/interrupts.h"
#include "cli/console/progress_bar.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/device/device_path.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

const Answer kDone = {MEDIA_ADAPTER_OK, {}};

}  // namespace

void AddTransferOptions(CLI::App& parser, const std::shared_ptr<TransferOptions>& options) {
  const auto flag = [&](const char* names, bool TransferOptions::*option, const char* text) {
    parser.add_flag_callback(
        names, [=] { options.get()->*option = true; }, text);
  };
  flag("-u,--update", &TransferOptions::skipsNewer,
       "Pass over files that are newer where they would go to, or the same there");
  flag("-n,--dry-run", &TransferOptions::isDryRun, "List what would be done, and do nothing");
  flag("-v,--verbose", &TransferOptions::isVerbose, "Print a line for every file, and a summary");
  parser
      .add_option("--exclude", options->excluded,
                  "Pass over what has this name or path (*, ?, [...], ** for any depth; with / at the beginning, from "
                  "the top; with / at the end, folders). May be given several times")
      ->type_name("GLOB")
      ->allow_extra_args(false);
}

Transfer::Transfer(const Context& context, std::string command, Direction direction, const TransferOptions& options)
    : context_(context),
      command_(std::move(command)),
      direction_(direction),
      options_(options),
      items_(std::make_unique<ordered_json>(ordered_json::array())) {}

Transfer::~Transfer() = default;

std::string Transfer::ReasonToSkip(Comparison comparison) const {
  const bool isToDevice = direction_ == Direction::ToDevice;
  if (options_.Compares() && comparison == Comparison::Same) return "the same";
  if (options_.skipsNewer && comparison == (isToDevice ? Comparison::DeviceIsNewer : Comparison::LocalIsNewer)) {
    return isToDevice ? "newer on the device" : "newer here";
  }
  return {};
}

void Transfer::Record(const char* action, const TransferItem& item, const Answer& answer) {
  if (!context_.output.isJson) return;
  ordered_json json = ordered_json::object();
  if (!item.path.empty()) json["path"] = DisplayPath(item.path);
  if (!item.local.empty()) json["local"] = Escape(item.local);
  if (item.size) json["size"] = *item.size;
  json.update(AnswerJson(answer));
  if (action != nullptr) json["action"] = action;
  items_->push_back(std::move(json));
}

void Transfer::Skip(const TransferItem& item, const std::string& reason) {
  ++skipped_;
  Record("skip", item, {MEDIA_ADAPTER_OK, reason});
}

void Transfer::Fail(const TransferItem& item, const Answer& answer) { Conclude(nullptr, item, answer); }

void Transfer::Expect(uint64_t size) {
  ++state_.fileCount;
  state_.bytesTotal += size;
}

void Transfer::Look(const std::string& escapedName) const {
  context_.output.Fleeting(Shorten("looking at " + escapedName, TerminalColumns() - 1));
}

// True when all is well. Whatever fails is said at once.
bool Transfer::Conclude(const char* action, const TransferItem& item, const Answer& answer) {
  Record(action, item, answer);
  if (answer.IsOk()) return true;
  ++failed_;
  mayGoOn_ = mayGoOn_ && !IsOfDevice(answer);
  context_.output.ItemFailed(command_ + " " + (item.path.empty() ? Escape(item.local) : DisplayPath(item.path)),
                             answer);
  return false;
}

// What could not be deleted again keeps everything else from being written.
bool Transfer::ConcludeWrite(const char* action, const TransferItem& item, const Answer& answer) {
  if (Conclude(action, item, answer)) return true;
  if (direction_ == Direction::ToDevice && context_.writer.IsBlocked()) mayGoOn_ = false;
  return false;
}

bool Transfer::MakeFolder(const TransferItem& item, const Call& call) {
  const std::string name = direction_ == Direction::ToDevice ? DisplayPath(item.path) : Escape(item.local);
  if (options_.isDryRun) {
    dryRun_.push_back({"mkdir", "", name});
    Record("mkdir", item, kDone);
    return true;
  }
  const Answer answer = call();
  return answer.IsOk() || ConcludeWrite("mkdir", item, answer);
}

bool Transfer::Delete(const TransferItem& item, const Call& call) {
  const std::string name = direction_ == Direction::ToDevice ? DisplayPath(item.path) : Escape(item.local);
  if (options_.isDryRun) dryRun_.push_back({"delete", item.size ? std::to_string(*item.size) : "", name});
  if (!ConcludeWrite("delete", item, options_.isDryRun ? kDone : call())) return false;
  ++deleted_;
  if (!options_.isDryRun) Say("deleted " + name);
  return true;
}

bool Transfer::Copy(const TransferItem& item, uint32_t* progress, const Call& call) {
  const bool isToDevice = direction_ == Direction::ToDevice;
  const std::string from = isToDevice ? Escape(item.local) : DisplayPath(item.path);
  const std::string to = isToDevice ? DisplayPath(item.path) : Escape(item.local);
  const uint64_t size = item.size.value_or(0);
  ++state_.fileNumber;
  Answer answer = kDone;
  const Clock::time_point fileStart = Clock::now();
  if (!start_) start_ = fileStart;
  if (options_.isDryRun) {
    dryRun_.push_back({"copy", std::to_string(size), to});
  } else {
    state_.fileSize = size;
    if (progress != nullptr) *progress = 0;
    const ProgressBar bar(from, state_, *start_, progress);
    answer = call();
  }
  if (!ConcludeWrite("copy", item, answer)) return false;
  ++copied_;
  state_.bytesDone += size;
  if (options_.isDryRun) return true;
  const std::string rate = RateText(size, SecondsSince(fileStart));
  Say(NumberText(state_) + from + " -> " + to + (item.size ? ", " + SizeText(size) : "") +
      (rate.empty() ? "" : ", " + rate));
  return true;
}

bool Transfer::MayGoOn() const { return mayGoOn_ && !IsInterrupted(); }

bool Transfer::MayDelete(size_t count) const {
  if (count > 0 && failed_ > 0) context_.output.Error(command_ + ": nothing is deleted, because of what failed before");
  return failed_ == 0;
}

// In front of lines, when there are several devices.
std::string Transfer::Prefix() const { return context_.output.device.empty() ? "" : context_.output.device + ": "; }

// A person at the terminal wants to see it, and who asks for it.
void Transfer::Say(const std::string& text) const {
  if (!options_.isVerbose || context_.output.isJson) return context_.output.Note(text);
  context_.output.Line(Prefix() + text);
}

std::string Transfer::Summary(double seconds) const {
  const std::string files = copied_ == 1 ? " file" : " files";
  return (options_.isDryRun ? "dry run: " : "") + std::to_string(copied_) + files + " copied, " +
         std::to_string(state_.bytesDone) + " bytes, " + std::to_string(skipped_) + " skipped, " +
         (options_.deletes ? std::to_string(deleted_) + " deleted, " : "") + std::to_string(failed_) + " failed, " +
         TimeText(seconds);
}

int Transfer::Finish(bool isAlways) {
  const Output& output = context_.output;
  output.Fleeting("");
  if (IsInterrupted()) output.Error(command_ + ": interrupted; what came after was not begun");
  const double seconds = SecondsSince(begin_);
  const int code = failed_ > 0 ? kFailure : kSuccess;
  if (output.isJson) {
    const ordered_json summary = {{"items", *items_},    {"copied", copied_},   {"bytes", state_.bytesDone},
                                  {"skipped", skipped_}, {"deleted", deleted_}, {"failed", failed_},
                                  {"seconds", seconds}};
    output.Json(isAlways ? summary : *items_);
    return code;
  }
  const Column columns[] = {{"ACTION"}, {"SIZE", true}, {"WHAT"}};
  if (!dryRun_.empty()) output.Table(columns, dryRun_);
  if (isAlways) {
    output.Line(Prefix() + Summary(seconds));
  } else if (options_.isVerbose || options_.Compares() || state_.fileCount > 1) {
    Say(Summary(seconds));
  }
  return code;
}

}  // namespace media_adapter::cli

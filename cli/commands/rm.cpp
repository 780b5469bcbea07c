// The "rm" command.
#include <memory>

#include "cli/commands/items.h"
#include "cli/commands/table.h"
#include "cli/device/walk.h"

namespace media_adapter::cli {
namespace {

struct RemoveOptions {
  bool isRecursive = false;
  bool isForced = false;
};

// Deletes the files below a folder. The folders stay: no device can delete one.
class Remover : public WalkVisitor {
 public:
  Remover(const Context& context, ItemResults& results) : context_(context), results_(results) {}

  bool Visit(const WalkItem& item) override {
    if (!results_.MayGoOn()) return false;
    if (IsFolder(item.entry)) {
      ++folders_;
      return true;
    }
    const Answer answer = context_.writer.Remove(item.path);
    answer.IsOk() ? ++files_ : ++failures_;
    results_.Add(item.path, answer, {}, item.entry.size);
    return false;
  }

  void Fail(const std::string& path, const Answer& answer) override {
    ++failures_;
    results_.Add(path, answer);
  }

  std::string Report() const {
    const std::string done = std::to_string(files_) + (files_ == 1 ? " file" : " files") + " deleted; ";
    if (failures_ > 0) return done + "not all that is in it could be";
    return done + "the device keeps the folder" +
           (folders_ == 0 ? "" : " and the " + std::to_string(folders_) + " in it") + ", empty";
  }

 private:
  const Context& context_;
  ItemResults& results_;
  size_t files_ = 0, folders_ = 0, failures_ = 0;
};

void RemoveFolder(const Context& context, const std::string& path, Listing listing, ItemResults& results) {
  if (path == kRootPath) {
    return results.Add(path, Problem("not the whole volume; /* names all that is on it, and format clears it at once"));
  }
  Remover remover(context, results);
  Walk(context.session, path, std::move(listing), remover);
  if (!results.MayGoOn()) return;
  Answer answer = context.writer.Remove(path);  // which a device may learn one day
  if (!answer.IsOk()) answer.detail = remover.Report();
  results.Add(path, answer);
}

int RunRemove(const Context& context, std::span<const std::string> arguments, const RemoveOptions& options) {
  std::vector<std::string> patterns;
  if (!ResolvePatterns(context, "rm", arguments, patterns)) return kUsage;
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  ItemResults results(context.output, "rm");
  for (const std::string& path : results.Expand(context.session, patterns)) {
    if (!results.MayGoOn()) break;
    Listing listing;
    if (options.isRecursive) listing = context.session.List(path);
    if (listing.answer.IsOk()) {
      RemoveFolder(context, path, std::move(listing), results);
      continue;
    }
    const bool isLarge = listing.answer.status == MEDIA_ADAPTER_TOO_MANY_DIRECTORY_ENTRIES;
    const Answer answer = isLarge ? listing.answer : context.writer.Remove(path);
    if (options.isForced && answer.status == MEDIA_ADAPTER_INVALID_PATH) continue;
    results.Add(path, ExplainMissing(context.session, path, answer));
  }
  return results.Finish();
}

}  // namespace

void DescribeRemove(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<RemoveOptions>();
  CLI::Option* const paths = parser.add_option("PATH", "Files to delete");
  paths->expected(1, -1)->required()->allow_extra_args()->type_name(kPattern);
  parser.add_flag("-r,-R,--recursive", options->isRecursive,
                  "All files in folders and below, too; a device keeps the folders themselves (status 241)");
  parser.add_flag("-f,--force", options->isForced, "What is not there is no failure");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunRemove(context, arguments, *options); };
  });
}

}  // namespace media_adapter::cli

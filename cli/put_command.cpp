// The "put" command.
#include <algorithm>
#include <filesystem>
#include <memory>

#include "cli/commands.h"
#include "cli/file_commands.h"
#include "cli/local_text.h"
#include "cli/progress_bar.h"
#include "cli/text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

class Putter {
 public:
  Putter(const Context& context, bool isRecursive)
      : context_(context), isRecursive_(isRecursive), results_(context.output, "put") {}

  void Item(const fs::path& local, const std::string& folderPath) {
    if (!results_.MayGoOn()) return;
    std::error_code error;
    const fs::file_status status = fs::status(local, error);
    if (!fs::exists(status)) return Refuse(local, "no such local file");
    if (fs::is_regular_file(status)) return File(local, folderPath);
    if (!fs::is_directory(status)) return Refuse(local, "neither a file nor a folder");
    if (!isRecursive_) return Refuse(local, "a folder; give -r to copy it");
    Folder(local, folderPath);
  }

  int Finish() const { return results_.Finish(); }

 private:
  void Refuse(const fs::path& local, const std::string& problem) {
    results_.Add({}, Problem(problem), LocalText(local));
  }

  void File(const fs::path& local, const std::string& folderPath) {
    std::error_code error;
    const uint64_t size = fs::file_size(local, error);
    const std::string path = JoinDevicePath(folderPath, LocalText(local.filename()));
    Answer answer;
    {
      const ProgressBar bar(Escape(LocalText(local)), error ? 0 : size, nullptr);
      answer = context_.session.WriteFile(LocalText(local), folderPath);
    }
    results_.Add(path, answer, LocalText(local), size);
    if (answer.IsOk()) {
      context_.output.Note(Escape(LocalText(local)) + " -> " + DisplayPath(path) + ", " + SizeText(size));
    }
  }

  // The folder under its own name; "." and ".." give what is in them.
  void Folder(const fs::path& local, const std::string& folderPath) {
    std::error_code error;
    const fs::path real = fs::canonical(local, error);
    if (error) return Refuse(local, error.message());
    // Symbolic links are followed, but not round in circles.
    if (std::ranges::find(around_, real) != around_.end())
      return Refuse(local, "skipped: leads back to a folder around it");
    const fs::path normal = local.lexically_normal();
    const std::string name = LocalText((normal.has_filename() ? normal : normal.parent_path()).filename());
    std::string path = folderPath;
    if (!name.empty() && name != "." && name != "..") {
      path = JoinDevicePath(folderPath, name);
      if (const Answer answer = MakeOrTakeFolder(context_.session, path); !answer.IsOk()) {
        return results_.Add(path, answer, LocalText(local));
      }
    }
    std::vector<fs::path> entries;
    for (fs::directory_iterator entry(local, error), end; !error && entry != end; entry.increment(error)) {
      entries.push_back(entry->path());
    }
    if (error) Refuse(local, error.message());
    std::ranges::sort(entries);
    around_.push_back(real);
    for (const fs::path& entry : entries) Item(entry, path);
    around_.pop_back();
  }

  const Context& context_;
  const bool isRecursive_;
  ItemResults results_;
  std::vector<fs::path> around_;
};

int RunPut(const Context& context, std::vector<std::string> locals, bool isRecursive) {
  if (locals.size() < 2) {
    return context.output.Failed("put", Problem("the last argument names the device's folder; / is its root"), kUsage);
  }
  const std::string folderPath = context.session.Resolve(locals.back());
  locals.pop_back();
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  if (const Answer answer = CheckFolder(context.session, folderPath); !answer.IsOk()) {
    return context.output.Failed("put, into " + DisplayPath(folderPath), answer);
  }
  Putter putter(context, isRecursive);
  for (const std::string& local : locals) putter.Item(local, folderPath);
  return putter.Finish();
}

}  // namespace

void DescribePut(CLI::App& parser, Context& context, Action& action) {
  auto isRecursive = std::make_shared<bool>(false);
  CLI::Option* const paths = parser.add_option(
      "FILE", "Local files to copy, and last the device's folder to copy into. Files of the same name are overwritten");
  paths->expected(1, -1)->required()->allow_extra_args();
  parser.add_flag("-r,--recursive", *isRecursive, "Copy folders with all that is in them");
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = paths->reduced_results()] { return RunPut(context, arguments, *isRecursive); };
  });
}

}  // namespace media_adapter::cli

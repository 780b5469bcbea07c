#include "cli/commands/fetch.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "cli/commands/items.h"
#include "cli/console/interrupts.h"
#include "cli/console/progress_bar.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_name.h"
#include "cli/local/local_text.h"
#include "cli/local/temporary_folder.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

Answer CopyToOutput(const std::string& localPath) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(localPath.c_str(), "rb"), std::fclose);
  if (!file) return Problem("cannot read the temporary file");
  std::vector<char> buffer(1 << 16);
  size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), file.get())) > 0) {
    if (std::fwrite(buffer.data(), 1, count, stdout) < count) return Problem("cannot write to standard output");
  }
  return std::ferror(file.get()) != 0 ? Problem("cannot read the temporary file") : Answer{MEDIA_ADAPTER_OK, {}};
}

}  // namespace

Answer FetchFile(const Context& context, const std::string& path, const std::string& localFolder,
                 const std::optional<ListingEntry>& entry) {
  const fs::path local = LocalPath(localFolder) / LocalPath(SplitDevicePath(path).name);
  Answer answer = context.session.ReadFile(path, localFolder);
  if (!answer.IsOk()) return answer;
  if (IsInterrupted()) return Problem("interrupted; nothing was kept");
  std::error_code error;
  const uint64_t localSize = fs::file_size(local, error);
  if (error) return Problem("the local file is not there: " + ErrorText(error));
  if (entry && localSize != entry->size) {
    return Problem("the local file has " + std::to_string(localSize) + " bytes, the device lists " +
                   std::to_string(entry->size));
  }
  return answer;
}

Answer FetchFileShown(const Context& context, const std::string& path, const std::string& localFolder,
                      const std::optional<ListingEntry>& entry) {
  TransferState state = {.fileNumber = 1, .fileCount = 1};
  state.bytesTotal = state.fileSize = entry ? entry->size : 0;
  *context.session.Progress() = 0;
  const ProgressBar bar(DisplayPath(path), state, ProgressBar::Clock::now(), context.session.Progress());
  return FetchFile(context, path, localFolder, entry);
}

// The library writes files only, so the file takes the way round by a temporary folder.
int GetToOutput(const Context& context, const std::string& command, const std::string& path) {
  const std::string operation = command + " " + DisplayPath(path);
  const Found found = FindItem(context.session, path);
  if (!found.answer.IsOk()) {
    return context.output.Failed(operation, ExplainMissing(context.session, path, found.answer));
  }
  if (found.isFolder) return context.output.Failed(operation, Problem("a folder cannot go to standard output"));
  const std::string name = SplitDevicePath(path).name;
  if (!IsSafeLocalName(LocalNameFor(name))) {
    return context.output.Failed(operation, Problem("no name for a local file"));
  }
  TemporaryFolder folder;
  if (folder.Path().empty()) {
    return context.output.Failed(operation, Problem("cannot make a temporary folder: " + folder.Error()));
  }
  const fs::path local = folder.Use(name);
  Answer answer = FetchFileShown(context, path, folder.Path(), found.entry);
  if (answer.IsOk()) answer = CopyToOutput(LocalText(local));
  return answer.IsOk() ? kSuccess : context.output.Failed(operation, answer);
}

}  // namespace media_adapter::cli

// What get, put and sync share: their options, what they do with each file, and what they tell of it - the progress of
// the running file, failures at once, a summary and JSON at the end. A command plans first, so that the number of files
// and bytes is known, and then carries out.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands/table.h"
#include "cli/console/output.h"
#include "cli/console/progress_text.h"
#include "cli/device/comparison.h"

namespace media_adapter::cli {

struct TransferOptions {
  bool isRecursive = false;
  bool skipsSame = false;
  bool skipsNewer = false;  // what is newer where it goes to; then the same, too
  bool deletes = false;     // what the source does not have
  bool isDryRun = false;
  bool isVerbose = false;
  std::vector<std::string> excluded;

  bool Compares() const { return skipsSame || skipsNewer; }
};

// --update, --dry-run, --exclude and --verbose.
void AddTransferOptions(CLI::App& parser, const std::shared_ptr<TransferOptions>& options);

enum class Direction : uint8_t { ToDevice, FromDevice };

// A file or folder on its two sides; either may be empty.
struct TransferItem {
  std::string path;   // on the device
  std::string local;  // in the bytes of LocalText
  std::optional<uint64_t> size{};
};

class Transfer {
 public:
  Transfer(const Context& context, std::string command, Direction direction, const TransferOptions& options);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // Planning. Why a file that is on both sides is passed over, or "".
  std::string ReasonToSkip(Comparison comparison) const;
  void Skip(const TransferItem& item, const std::string& reason);
  void Fail(const TransferItem& item, const Answer& answer);
  // A file that will be copied.
  void Expect(uint64_t size);
  // The line on a terminal while it goes on.
  void Look(const std::string& escapedName) const;

  // Carrying out: what `call` does, unless this is a dry run. True when it succeeded, or would be done.
  using Call = std::function<Answer()>;
  bool MakeFolder(const TransferItem& item, const Call& call);
  bool Delete(const TransferItem& item, const Call& call);
  // progress: percent of this file as the library writes it, or null.
  bool Copy(const TransferItem& item, uint32_t* progress, const Call& call);

  // False once something has failed for a reason that lies with the device or the way to it, since everything else
  // would fail as well, perhaps after a long wait each; and after an interrupt.
  bool MayGoOn() const;
  // False, which is said, when something could not be looked at: what is missing may be there.
  bool MayDelete(size_t count) const;
  // Says the summary when `isAlways` or a person wants to know. The command's exit code.
  int Finish(bool isAlways = false);

 private:
  // action: as JSON names it, or null for what was not even tried.
  void Record(const char* action, const TransferItem& item, const Answer& answer);
  bool Conclude(const char* action, const TransferItem& item, const Answer& answer);
  bool ConcludeWrite(const char* action, const TransferItem& item, const Answer& answer);
  std::string Prefix() const;
  void Say(const std::string& text) const;
  std::string Summary(double seconds) const;

  const Context& context_;
  const std::string command_;
  const Direction direction_;
  const TransferOptions& options_;
  bool mayGoOn_ = true;
  size_t copied_ = 0, skipped_ = 0, deleted_ = 0, failed_ = 0;
  TransferState state_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::optional<std::chrono::steady_clock::time_point> start_;  // of the first file
  std::vector<Row> dryRun_;
  std::unique_ptr<nlohmann::ordered_json> items_;
};

}  // namespace media_adapter::cli

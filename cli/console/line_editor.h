// Lines typed at the terminal, with the system's way of editing them and of bringing earlier ones back, those of
// earlier runs among them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cli/commands/completion.h"

namespace media_adapter::cli {

class LineEditor {
 public:
  // complete: what the Tab key offers for a line up to the cursor, where the system's editing knows such a key.
  using Completer = std::function<Completion(std::string_view line)>;
  // mayBeKept: whether a line may be written to the user's history file.
  using Filter = std::function<bool(std::string_view line)>;
  LineEditor(Completer complete, Filter mayBeKept);
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  // A line without its end; none at the end of input.
  std::optional<std::string> ReadLine(const std::string& prompt);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace media_adapter::cli

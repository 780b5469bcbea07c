// The console edits lines and keeps earlier ones by itself. Its Tab key cannot be asked for.
#include "cli/console/line_editor.h"

#include <cstdio>

#include "cli/windows/console.h"

namespace media_adapter::cli {

struct LineEditor::Impl {};

LineEditor::LineEditor(Completer, Filter) {}
LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::ReadLine(const std::string& prompt) {
  std::fflush(stdout);
  return AskLine(GetStdHandle(STD_INPUT_HANDLE), GetStdHandle(STD_OUTPUT_HANDLE), prompt);
}

}  // namespace media_adapter::cli

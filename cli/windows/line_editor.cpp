// The console edits lines and keeps earlier ones by itself. Its Tab key cannot be asked for.
#include "cli/console/line_editor.h"

#include <iostream>

namespace media_adapter::cli {

struct LineEditor::Impl {};

LineEditor::LineEditor(Completer, Filter) {}
LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::ReadLine(const std::string& prompt) {
  std::cout << prompt << std::flush;
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  return line;
}

}  // namespace media_adapter::cli

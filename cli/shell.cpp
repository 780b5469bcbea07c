#include "cli/shell.h"

#include <histedit.h>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <iostream>
#include <memory>

#include "cli/completion.h"
#include "cli/device_choice.h"
#include "cli/terminal.h"
#include "cli/text.h"
#include "cli/words.h"

namespace media_adapter::cli {
namespace {

constexpr int kHistoryLines = 500;

// The line editor with its history; libedit's callbacks find it through the editor's client data.
class LineEditor {
 public:
  explicit LineEditor(Context& context) : context_(context) {
    HistEvent event;
    history(history_.get(), &event, H_SETSIZE, kHistoryLines);
    history(history_.get(), &event, H_SETUNIQUE, 1);
    EditLine* const editor = editor_.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, &LineEditor::Prompt);
    el_set(editor, EL_HIST, history, history_.get());
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_ADDFN, "media-adapter-complete", "Complete the word", &LineEditor::OnTab);
    el_set(editor, EL_BIND, "^I", "media-adapter-complete", nullptr);
    // While a line is edited Ctrl-C is a key that drops it, not a signal that ends the shell.
    el_set(editor, EL_ADDFN, "media-adapter-cancel", "Drop the line", &LineEditor::OnCancel);
    el_set(editor, EL_BIND, "^C", "media-adapter-cancel", nullptr);
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
    el_source(editor, nullptr);
  }

  // None at the end of input.
  std::optional<std::string> ReadLine() {
    UpdatePrompt();
    int length = 0;
    const char* const text = el_gets(editor_.get(), &length);
    if (text == nullptr || length <= 0) return std::nullopt;
    std::string line(text, static_cast<size_t>(length));
    line.erase(line.find_last_not_of("\r\n") + 1);
    HistEvent event;
    if (!line.empty()) history(history_.get(), &event, H_ENTER, line.c_str());
    return line;
  }

 private:
  static LineEditor& Of(EditLine* editor) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
  }

  static char* Prompt(EditLine* editor) { return Of(editor).prompt_.data(); }

  static unsigned char OnCancel(EditLine* editor, int) {
    const LineInfo* const line = el_line(editor);
    std::fputs("^C\n", stdout);
    el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
    el_deletestr(editor, static_cast<int>(line->lastchar - line->buffer));
    // An empty line would look like the end of input.
    el_insertstr(editor, "\n");
    return CC_NEWLINE;
  }

  static unsigned char OnTab(EditLine* editor, int) {
    const LineInfo* const info = el_line(editor);
    const std::string_view line(info->buffer, static_cast<size_t>(info->cursor - info->buffer));
    const Completion completion = Complete(line, Of(editor).context_);
    if (!completion.replacement.empty()) {
      const std::string_view replaced = line.substr(completion.start);
      el_deletestr(editor, static_cast<int>(Columns(replaced)));
      el_insertstr(editor, completion.replacement.c_str());
      return CC_REFRESH;
    }
    if (completion.candidates.empty()) return CC_REFRESH_BEEP;
    std::fputc('\n', stdout);
    for (const std::string& candidate : completion.candidates) std::fputs((candidate + "  ").c_str(), stdout);
    std::fputc('\n', stdout);
    return CC_REDISPLAY;
  }

  void UpdatePrompt() {
    const DeviceEntry* const device = context_.session.Device();
    prompt_ =
        device == nullptr ? "media-adapter> " : DeviceName(*device) + ":" + DisplayPath(context_.session.folder) + "> ";
  }

  Context& context_;
  std::string prompt_;
  std::unique_ptr<History, void (*)(History*)> history_{history_init(), history_end};
  std::unique_ptr<EditLine, void (*)(EditLine*)> editor_{el_init("media-adapter", stdin, stdout, stderr), el_end};
};

int RunHelp(Context& context, std::span<const std::string> names) {
  std::string line;
  for (const std::string& name : names) line += name + " ";
  const auto isNamed = [&](const Command& command) { return command.name == names.front(); };
  if (!names.empty() && std::ranges::none_of(CommandTable(), isNamed)) {
    return context.output.Failed("help " + Escape(names.front()), Problem("no such command"), kUsage);
  }
  return RunLine(line + "--help", context);
}

}  // namespace

int RunScript(Context& context) {
  int code = kSuccess;
  std::string line;
  for (int number = 1; !context.isLeaving && std::getline(std::cin, line); ++number) {
    context.output.place = "line " + std::to_string(number) + ": ";
    const int lineCode = RunLine(line, context);
    if (code == kSuccess) code = lineCode;
    if (lineCode != kSuccess && !context.isKeptGoing) break;
  }
  return code;
}

int RunShell(Context& context) {
  if (context.isInShell) return context.output.Failed("shell", Problem("this is the shell already"), kUsage);
  if (!IsInputTerminal()) return RunScript(context);
  std::setlocale(LC_CTYPE, "");
  context.isInShell = true;
  context.session.Prepare();
  context.output.Note("\"help\" lists the commands, \"exit\" or Ctrl-D leaves");
  LineEditor editor(context);
  while (!context.isLeaving) {
    std::optional<std::string> line = editor.ReadLine();
    if (!line) {
      context.output.Note("");
      break;
    }
    // The end of the line ends a quotation, which completion leaves open behind a folder.
    if (const char quote = FindLastWord(*line).quote; quote != 0) *line += quote;
    RunLine(*line, context);
  }
  return kSuccess;
}

void DescribeShell(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] { action = [&context] { return RunShell(context); }; });
}

void DescribeHelp(CLI::App& parser, Context& context, Action& action) {
  CLI::Option* const names = parser.add_option("COMMAND", "The command to describe");
  names->expected(0, -1)->allow_extra_args();
  parser.callback([=, &context, &action] {
    action = [&context, arguments = names->reduced_results()] { return RunHelp(context, arguments); };
  });
}

void DescribeExit(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] {
    action = [&context] {
      context.isLeaving = true;
      return kSuccess;
    };
  });
}

}  // namespace media_adapter::cli

#include "cli/console/line_editor.h"

#include <histedit.h>

#include <clocale>
#include <cstdio>

#include "cli/console/text.h"
#include "cli/posix/history_file.h"

namespace media_adapter::cli {

// libedit's callbacks find it through the editor's client data.
struct LineEditor::Impl {
  Impl(Completer toComplete, Filter toKeep) : complete(std::move(toComplete)), mayBeKept(std::move(toKeep)) {
    HistEvent event;
    history(lines.get(), &event, H_SETSIZE, static_cast<int>(kHistoryLines));
    history(lines.get(), &event, H_SETUNIQUE, 1);
    for (const std::string& line : ReadHistory()) Remember(line);
    el_set(editor.get(), EL_CLIENTDATA, this);
    el_set(editor.get(), EL_PROMPT, &Impl::Prompt);
    el_set(editor.get(), EL_HIST, history, lines.get());
    el_set(editor.get(), EL_EDITOR, "emacs");
    el_set(editor.get(), EL_ADDFN, "media-adapter-complete", "Complete the word", &Impl::OnTab);
    el_set(editor.get(), EL_BIND, "^I", "media-adapter-complete", nullptr);
    // While a line is edited Ctrl-C is a key that drops it, not a signal that ends the shell.
    el_set(editor.get(), EL_ADDFN, "media-adapter-cancel", "Drop the line", &Impl::OnCancel);
    el_set(editor.get(), EL_BIND, "^C", "media-adapter-cancel", nullptr);
    // What Ctrl-D becomes that is typed before the editor reads, while a command runs.
    el_set(editor.get(), EL_ADDFN, "media-adapter-early-end", "End, as Ctrl-D does", &Impl::OnEarlyEnd);
    el_set(editor.get(), EL_BIND, "^@", "media-adapter-early-end", nullptr);
    el_set(editor.get(), EL_SETTY, "-d", "-isig", nullptr);
    el_source(editor.get(), nullptr);
  }

  void Remember(const std::string& line) {
    HistEvent event;
    history(lines.get(), &event, H_ENTER, line.c_str());
    last = line;
  }

  static Impl& Of(EditLine* editor) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<Impl*>(self);
  }

  static char* Prompt(EditLine* editor) { return Of(editor).prompt.data(); }

  static unsigned char OnCancel(EditLine* editor, int) {
    const LineInfo* const line = el_line(editor);
    std::fputs("^C\n", stdout);
    el_cursor(editor, static_cast<int>(line->lastchar - line->cursor));
    el_deletestr(editor, static_cast<int>(line->lastchar - line->buffer));
    // An empty line would look like the end of input.
    el_insertstr(editor, "\n");
    return CC_NEWLINE;
  }

  static unsigned char OnEarlyEnd(EditLine* editor, int) {
    const LineInfo* const line = el_line(editor);
    return line->lastchar == line->buffer ? CC_EOF : CC_NORM;
  }

  static unsigned char OnTab(EditLine* editor, int) {
    const LineInfo* const info = el_line(editor);
    const std::string_view line(info->buffer, static_cast<size_t>(info->cursor - info->buffer));
    const Completion completion = Of(editor).complete(line);
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

  Completer complete;
  Filter mayBeKept;
  std::string prompt;
  std::string last;  // line of the history
  std::unique_ptr<History, void (*)(History*)> lines{history_init(), history_end};
  std::unique_ptr<EditLine, void (*)(EditLine*)> editor{el_init("media-adapter", stdin, stdout, stderr), el_end};
};

LineEditor::LineEditor(Completer complete, Filter mayBeKept) {
  std::setlocale(LC_CTYPE, "");  // the editor's idea of a character
  impl_ = std::make_unique<Impl>(std::move(complete), std::move(mayBeKept));
}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::ReadLine(const std::string& prompt) {
  impl_->prompt = prompt;
  int length = 0;
  const char* const text = el_gets(impl_->editor.get(), &length);
  if (text == nullptr || length <= 0) return std::nullopt;
  std::string line(text, static_cast<size_t>(length));
  line.erase(line.find_last_not_of("\r\n") + 1);
  if (line.empty() || line == impl_->last) return line;
  impl_->Remember(line);
  if (impl_->mayBeKept(line)) AddToHistory(line);
  return line;
}

}  // namespace media_adapter::cli

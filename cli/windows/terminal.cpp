#include "cli/console/terminal.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "cli/console/interrupts.h"
#include "cli/windows/console.h"

namespace media_adapter::cli {
namespace {

// The console of the process, whatever its standard streams are.
class Dialogue {
 public:
  ~Dialogue() {
    if (input_ != INVALID_HANDLE_VALUE) CloseHandle(input_);
    if (output_ != INVALID_HANDLE_VALUE) CloseHandle(output_);
  }
  Dialogue() = default;
  Dialogue(const Dialogue&) = delete;
  Dialogue& operator=(const Dialogue&) = delete;

  bool IsOpen() const { return input_ != INVALID_HANDLE_VALUE && output_ != INVALID_HANDLE_VALUE; }
  HANDLE Input() const { return input_; }
  HANDLE Output() const { return output_; }

 private:
  static HANDLE Open(const char* name) {
    return CreateFileA(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       0, nullptr);
  }
  HANDLE input_ = Open("CONIN$");
  HANDLE output_ = Open("CONOUT$");
};

// A console outlives the process, and its modes with it: what is changed is changed back, an interrupt included, whose
// thread may do it at the same time. Streams of one console are noted before any of them is changed.
struct ConsoleMode {
  HANDLE console = nullptr;
  DWORD before = 0;

  void Note(HANDLE stream) {
    if (GetConsoleMode(stream, &before) != 0) console = stream;
  }
  void Change(DWORD on, DWORD off) const {
    if (console != nullptr) SetConsoleMode(console, (before | on) & ~off);
  }
  void Restore() const { Change(0, 0); }
};

ConsoleMode inputMode;                   // while nothing is shown of what is typed
std::array<ConsoleMode, 2> outputModes;  // of standard output and standard error, often one console

void ShowEcho() { inputMode.Restore(); }
void RestoreOutput() {
  for (const ConsoleMode& mode : outputModes) mode.Restore();
}

// Hides what is typed for as long as it lives.
class HiddenEcho {
 public:
  explicit HiddenEcho(HANDLE console) {
    inputMode.Note(console);
    inputMode.Change(ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT, ENABLE_ECHO_INPUT);
  }
  ~HiddenEcho() { ShowEcho(); }
  HiddenEcho(const HiddenEcho&) = delete;
  HiddenEcho& operator=(const HiddenEcho&) = delete;

 private:
  CleanupOnSignal cleanup_{ShowEcho};
};

// Has the consoles obey the sequences of terminals for as long as it lives.
class TerminalOutput {
 public:
  TerminalOutput() {
    outputModes[0].Note(GetStdHandle(STD_OUTPUT_HANDLE));
    outputModes[1].Note(GetStdHandle(STD_ERROR_HANDLE));
    for (const ConsoleMode& mode : outputModes) mode.Change(ENABLE_VIRTUAL_TERMINAL_PROCESSING, 0);
  }
  ~TerminalOutput() { RestoreOutput(); }
  TerminalOutput(const TerminalOutput&) = delete;
  TerminalOutput& operator=(const TerminalOutput&) = delete;

 private:
  CleanupOnSignal cleanup_{RestoreOutput};
};

HANDLE StandardStream(std::FILE* stream) {
  return GetStdHandle(stream == stdin ? STD_INPUT_HANDLE : stream == stdout ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

}  // namespace

void PrepareStreams() {
  _setmode(_fileno(stdout), _O_BINARY);
  static const TerminalOutput untilTheEnd;
}

void PrepareInputFile() { _setmode(_fileno(stdin), _O_BINARY); }

void Print(std::FILE* stream, std::string_view text) {
  const HANDLE handle = StandardStream(stream);
  if (!IsConsole(handle)) {
    std::fwrite(text.data(), 1, text.size(), stream);
  } else {
    std::fflush(stream);
    WriteText(handle, text);
  }
}

size_t ReadInput(std::span<char> buffer) {
  static std::string typed;  // and not yet taken
  const HANDLE input = StandardStream(stdin);
  if (!IsConsole(input)) return std::fread(buffer.data(), 1, buffer.size(), stdin);
  if (typed.empty()) {
    const auto line = AskLine(input, StandardStream(stderr), "");
    if (line) typed = *line + "\r\n";
  }
  const size_t count = std::min(buffer.size(), typed.size());
  std::copy_n(typed.begin(), count, buffer.begin());
  typed.erase(0, count);
  return count;
}

bool IsInputTerminal() { return IsConsole(StandardStream(stdin)); }
bool IsOutputTerminal() { return IsConsole(StandardStream(stdout)); }
bool IsErrorTerminal() { return IsConsole(StandardStream(stderr)); }

size_t TerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(StandardStream(stderr), &info) == 0) return 80;
  return static_cast<size_t>(info.srWindow.Right - info.srWindow.Left) + 1;
}

std::optional<std::string> Ask(std::string_view question) {
  const Dialogue dialogue;
  return dialogue.IsOpen() ? AskLine(dialogue.Input(), dialogue.Output(), question) : std::nullopt;
}

std::optional<std::string> AskSecret(std::string_view question) {
  const Dialogue dialogue;
  if (!dialogue.IsOpen()) return std::nullopt;
  const HiddenEcho hidden(dialogue.Input());
  return AskLine(dialogue.Input(), dialogue.Output(), question, false);
}

}  // namespace media_adapter::cli

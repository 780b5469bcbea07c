#include "cli/console/terminal.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <clocale>
#include <cstdio>

#include "cli/console/interrupts.h"

namespace media_adapter::cli {
namespace {

bool IsConsole(DWORD stream) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(stream), &mode) != 0;
}

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

  void Say(std::string_view text) const {
    DWORD written = 0;
    WriteConsoleA(output_, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }

  std::optional<std::string> ReadLine() const {
    std::string line;
    char c = 0;
    for (DWORD count = 0; ReadConsoleA(input_, &c, 1, &count, nullptr) != 0 && count == 1;) {
      if (c == '\n') return line;
      if (c != '\r') line += c;
    }
    return std::nullopt;
  }

 private:
  static HANDLE Open(const char* name) {
    return CreateFileA(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       0, nullptr);
  }
  HANDLE input_ = Open("CONIN$");
  HANDLE output_ = Open("CONOUT$");
};

HANDLE hiddenConsole = INVALID_HANDLE_VALUE;
DWORD shownMode = 0;

void ShowEcho() { SetConsoleMode(hiddenConsole, shownMode); }

// Hides what is typed for as long as it lives; an interrupt shows it again.
class HiddenEcho {
 public:
  explicit HiddenEcho(HANDLE console) {
    hiddenConsole = console;
    GetConsoleMode(console, &shownMode);
    SetConsoleMode(console, shownMode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
  }
  ~HiddenEcho() { ShowEcho(); }
  HiddenEcho(const HiddenEcho&) = delete;
  HiddenEcho& operator=(const HiddenEcho&) = delete;

 private:
  CleanupOnSignal cleanup_{ShowEcho};
};

}  // namespace

// Names are in the system's ANSI code page, in which the library takes them: so local paths are read, and the console
// prints.
void PrepareStreams() {
  std::setlocale(LC_CTYPE, "");
  SetConsoleOutputCP(GetACP());
  _setmode(_fileno(stdout), _O_BINARY);
  DWORD mode = 0;
  const HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
  if (GetConsoleMode(console, &mode) != 0) SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

void PrepareInputFile() { _setmode(_fileno(stdin), _O_BINARY); }

bool IsInputTerminal() { return IsConsole(STD_INPUT_HANDLE); }
bool IsOutputTerminal() { return IsConsole(STD_OUTPUT_HANDLE); }
bool IsErrorTerminal() { return IsConsole(STD_ERROR_HANDLE); }

size_t TerminalColumns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) return 80;
  return static_cast<size_t>(info.srWindow.Right - info.srWindow.Left) + 1;
}

std::optional<std::string> Ask(std::string_view question) {
  const Dialogue dialogue;
  if (!dialogue.IsOpen()) return std::nullopt;
  dialogue.Say(question);
  return dialogue.ReadLine();
}

std::optional<std::string> AskSecret(std::string_view question) {
  const Dialogue dialogue;
  if (!dialogue.IsOpen()) return std::nullopt;
  const HiddenEcho hidden(dialogue.Input());
  dialogue.Say(question);
  auto secret = dialogue.ReadLine();
  dialogue.Say("\r\n");
  return secret;
}

}  // namespace media_adapter::cli

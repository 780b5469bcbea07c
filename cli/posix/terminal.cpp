#include "cli/console/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "cli/console/interrupts.h"
#include "cli/posix/lent_terminal.h"

namespace media_adapter::cli {
namespace {

int lentTerminal = -1;

class Dialogue {
 public:
  Dialogue() {
    if (IsInputTerminal() && IsErrorTerminal()) return;
    own_ = lentTerminal >= 0 ? fcntl(lentTerminal, F_DUPFD_CLOEXEC, 0) : open("/dev/tty", O_RDWR | O_CLOEXEC);
    input_ = output_ = own_;
  }
  ~Dialogue() {
    if (own_ >= 0) close(own_);
  }
  Dialogue(const Dialogue&) = delete;
  Dialogue& operator=(const Dialogue&) = delete;

  bool IsOpen() const { return input_ >= 0; }
  int Input() const { return input_; }

  void Say(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t written = write(output_, text.data(), text.size());
      if (written <= 0) return;
      text.remove_prefix(static_cast<size_t>(written));
    }
  }

  std::optional<std::string> ReadLine() const {
    std::string line;
    char c = 0;
    while (read(input_, &c, 1) == 1) {
      if (c == '\n') return line;
      line += c;
    }
    return std::nullopt;
  }

 private:
  int own_ = -1;
  int input_ = STDIN_FILENO;
  int output_ = STDERR_FILENO;
};

int hiddenTerminal = -1;
termios shownSettings;

void ShowEcho() { tcsetattr(hiddenTerminal, TCSAFLUSH, &shownSettings); }

// Hides what is typed for as long as it lives; an interrupt shows it again.
class HiddenEcho {
 public:
  explicit HiddenEcho(int terminal) {
    hiddenTerminal = terminal;
    tcgetattr(terminal, &shownSettings);
    termios hidden = shownSettings;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    hidden.c_lflag |= ECHONL;
    tcsetattr(terminal, TCSAFLUSH, &hidden);
  }
  ~HiddenEcho() { ShowEcho(); }
  HiddenEcho(const HiddenEcho&) = delete;
  HiddenEcho& operator=(const HiddenEcho&) = delete;

 private:
  CleanupOnSignal cleanup_{ShowEcho};
};

}  // namespace

void LendTerminal(int terminal) { lentTerminal = terminal; }

void PrepareStreams() {}
void PrepareInputFile() {}

void Print(std::FILE* stream, std::string_view text) { std::fwrite(text.data(), 1, text.size(), stream); }
size_t ReadInput(std::span<char> buffer) { return std::fread(buffer.data(), 1, buffer.size(), stdin); }

bool IsInputTerminal() { return isatty(STDIN_FILENO) == 1; }
bool IsOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }
bool IsErrorTerminal() { return isatty(STDERR_FILENO) == 1; }

size_t TerminalColumns() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
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
  return dialogue.ReadLine();
}

}  // namespace media_adapter::cli

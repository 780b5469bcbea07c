/* Runs a command, without blanks in its words, and tells whether it left the console as it was: same_console COMMAND...
 * Ctrl-C is for the command alone. */
#include <process.h>
#include <stdio.h>
#include <windows.h>

typedef struct {
  DWORD input, output;
  UINT inputCodePage, outputCodePage;
} Console;

static Console Look(void) {
  Console console = {0, 0, GetConsoleCP(), GetConsoleOutputCP()};
  GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &console.input);
  GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &console.output);
  return console;
}

static BOOL WINAPI Ignore(DWORD event) { return event == CTRL_C_EVENT; }

int main(int count, char** words) {
  if (count < 2) return 2;
  SetConsoleCtrlHandler(Ignore, TRUE);
  /* As it is not usually: what is set and not reset shows. */
  SetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), ENABLE_PROCESSED_OUTPUT | ENABLE_WRAP_AT_EOL_OUTPUT);
  const Console before = Look();
  const intptr_t code = _spawnv(_P_WAIT, words[1], (const char* const*)words + 1);
  const Console after = Look();
  const int isSame = before.input == after.input && before.output == after.output &&
                     before.inputCodePage == after.inputCodePage && before.outputCodePage == after.outputCodePage;
  printf("%s console, exit code %lX\n", isSame ? "the same" : "another", (unsigned long)code);
  return !isSame;
}

/* Runs a command, without blanks in its words, and tells whether it left the console as it was: same_console COMMAND...
 * Ctrl-C is for the command alone. */
#include <process.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

typedef struct {
  char text[80];
} Console;

static Console Look(void) {
  DWORD input = 0, output = 0;
  Console console;
  GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &input);
  GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &output);
  snprintf(console.text, sizeof console.text, "modes %lX and %lX, code pages %u and %u", input, output, GetConsoleCP(),
           GetConsoleOutputCP());
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
  const int isSame = strcmp(before.text, after.text) == 0;
  printf("%s console, exit code %lX\n", isSame ? "the same" : "another", (unsigned long)code);
  if (!isSame) printf("%s before, %s after\n", before.text, after.text);
  return !isSame;
}

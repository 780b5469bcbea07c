// Many commands in one run: a script, which stops at the first failure, and the interactive shell, which goes on.
#pragma once

#include "cli/commands/table.h"

namespace media_adapter::cli {

// Runs the lines of standard input. The code of the first command that failed.
int RunScript(Context& context);

// Reads commands at the terminal, with line editing, history and completion; a script when there is no terminal.
int RunShell(Context& context);

}  // namespace media_adapter::cli

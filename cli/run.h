// One run of the tool: its options, what holds where none is given, and the command, the commands of -c or the script.
// main calls it, and so does the process in the background (cli/agent), there once for each run handed over to it.
#pragma once

#include <string>
#include <vector>

#include "cli/device/session.h"

namespace media_adapter::cli {

// arguments: without the program's name. kept: of the process in the background, null elsewhere. The exit code.
int Run(const std::vector<std::string>& arguments, KeptSearch* kept);

}  // namespace media_adapter::cli

// The controlling terminal of another process, for a worker that asks questions in its place.
#pragma once

namespace media_adapter::cli {

// terminal: a descriptor, or -1 for this process's own terminal again.
void LendTerminal(int terminal);

}  // namespace media_adapter::cli

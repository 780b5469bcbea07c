// Bringing the library up when it is loaded and taking it down when it is unloaded. The platform's load hook calls
// these; the tests do it by hand.
#pragma once

namespace media_adapter {

// Resets all state, starts the worker and opens the gate for the exports. Always true: a library whose parts failed to
// start is loaded all the same, and its exports time out.
bool StartLibrary();

// Ends the worker (by the quit message; by force after 100 ms) and the calls that are still inside, and frees what the
// requests left; a worker or a call that does not end keeps what it uses. No export may be called during and after it.
// In a forked child, which has the library's memory but not its worker, it does nothing.
void StopLibrary();

}  // namespace media_adapter

// Ties the library's life to its loading. The platform calls these two, the worker defines them; no export runs before
// the one or after the other.
#pragma once

namespace media_adapter::platform {

void OnLibraryLoaded();

// For the worker, once, when its start is over. Until then the library stays loaded, whatever the application does: the
// start may wait for a lock that unloading holds. Returns when the library can be unloaded, or `isStopping()`.
void AllowUnloading(bool (*isStopping)());

// Not called when the system ends all threads of a process before it lets its libraries go.
void OnLibraryUnloaded();

}  // namespace media_adapter::platform

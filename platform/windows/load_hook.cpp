// Both calls come under the loader's lock: a thread that starts or ends waits for it. Starting waits for no thread, and
// the end of the worker does not need the lock (see thread.cpp).
#include "platform/load_hook.h"

#include "platform/windows/system.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnds) {
  if (reason == DLL_PROCESS_ATTACH) media_adapter::platform::OnLibraryLoaded();
  // At the end of the process the other threads are gone already, with whatever locks they held.
  if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) media_adapter::platform::OnLibraryUnloaded();
  return TRUE;
}

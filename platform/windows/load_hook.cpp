// Loading and unloading come under the loader's lock: a thread that starts or ends waits for it, and so does whatever
// loads a library, as the system's socket layer does when it starts. Loading waits for no thread; unloading waits for
// the worker, which needs the lock in its start only and has the library stay until that is over.
#include "platform/load_hook.h"

#include "platform/windows/system.h"

#if defined(__GLIBCXX__)
namespace __gnu_cxx {
void __freeres();  // what the run-time allocated for itself when it was loaded
}
#endif

namespace media_adapter::platform {
namespace {

constexpr DWORD kLook = 1;  // milliseconds

HMODULE ownReference = nullptr;  // until the worker's start is over

void OnAttach() {
  GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const char*>(&OnAttach), &ownReference);
  OnLibraryLoaded();
}

void OnDetach() {
  OnLibraryUnloaded();
#if defined(__GLIBCXX__)
  __gnu_cxx::__freeres();
#endif
}

}  // namespace

// The reference may be the last one. So it is given back by a thread on which nothing of the library runs, and if the
// library goes with it, that thread is the one that calls OnDetach.
void AllowUnloading(bool (*isStopping)()) {
  const auto entry = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(&FreeLibrary));
  const HANDLE release = CreateThread(nullptr, 0, entry, ownReference, 0, nullptr);
  if (release == nullptr) return;  // it stays until the end of the process
  while (WaitForSingleObject(release, kLook) == WAIT_TIMEOUT && !isStopping()) {
  }
  CloseHandle(release);
}

}  // namespace media_adapter::platform

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnds) {
  if (reason == DLL_PROCESS_ATTACH) media_adapter::platform::OnAttach();
  // At the end of the process the other threads are gone already, with whatever locks they held.
  if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) media_adapter::platform::OnDetach();
  return TRUE;
}

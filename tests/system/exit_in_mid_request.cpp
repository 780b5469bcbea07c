// Ends while a search runs on another thread. Exit status 7 when nothing stands in the way.
#include <chrono>
#include <cstdlib>
#include <thread>

#include "tests/system/loaded_library.h"

int main() {
  static auto& library = *new media_adapter::system_tests::LoadedLibrary;  // never unloaded: the exit finds it at work
  std::thread([] { library.Search(""); }).detach();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  std::exit(7);
}

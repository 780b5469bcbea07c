#include "cli/local/environment.h"

#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <cstdlib>
#include <memory>

#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

struct Freed {
  void operator()(LPWSTR* words) const { LocalFree(words); }
};

}  // namespace

// Those of main have lost what is not in the code page.
std::vector<std::filesystem::path> Arguments(int /*count*/, char** /*words*/) {
  int count = 0;
  const std::unique_ptr<LPWSTR, Freed> words(CommandLineToArgvW(GetCommandLineW(), &count));
  return words ? std::vector<std::filesystem::path>(words.get() + 1, words.get() + count)
               : std::vector<std::filesystem::path>();
}

std::filesystem::path Variable(const char* name) {
  const wchar_t* const value = _wgetenv(LocalPath(name).c_str());
  return value != nullptr ? value : L"";
}

}  // namespace media_adapter::cli

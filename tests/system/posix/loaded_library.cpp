#include "tests/system/loaded_library.h"

#include <dlfcn.h>
#include <link.h>
#include <malloc.h>
#include <pthread.h>

#include <filesystem>
#include <utility>
#include <vector>

namespace media_adapter::system_tests {

void* LoadedLibrary::Load() { return dlopen(MEDIA_ADAPTER_LIBRARY, RTLD_NOW | RTLD_LOCAL); }
void* LoadedLibrary::FindAddress(const char* name) const { return dlsym(handle_, name); }
void LoadedLibrary::Unload() {
  if (handle_ != nullptr) dlclose(std::exchange(handle_, nullptr));
}

size_t LoadedLibrary::WritableBytes() {
  size_t bytes = 0;
  const auto visit = [](dl_phdr_info* info, size_t, void* sum) {
    if (std::string_view(info->dlpi_name) != MEDIA_ADAPTER_LIBRARY) return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
      const auto& segment = info->dlpi_phdr[i];
      if (segment.p_type == PT_LOAD && (segment.p_flags & PF_W) != 0) *static_cast<size_t*>(sum) += segment.p_memsz;
    }
    return 1;
  };
  dl_iterate_phdr(visit, &bytes);
  return bytes;
}

// An arena more, which threads in each other's way make, would count as allocated.
size_t AllocatedBytes() {
  mallopt(M_ARENA_MAX, 1);
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

size_t OpenHandles() {
  const std::filesystem::directory_iterator handles("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(handles), end(handles)));
}

size_t ThreadLocalIndices() {
  std::vector<pthread_key_t> keys;
  for (pthread_key_t key{}; pthread_key_create(&key, nullptr) == 0;) keys.push_back(key);
  for (const pthread_key_t key : keys) pthread_key_delete(key);
  return keys.size();
}

}  // namespace media_adapter::system_tests

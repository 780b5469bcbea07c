#include "tests/system/loaded_library.h"

#include <windows.h>

#include <array>
#include <span>
#include <utility>
#include <vector>

namespace media_adapter::system_tests {

void* LoadedLibrary::Load() { return LoadLibraryA(MEDIA_ADAPTER_LIBRARY); }
void* LoadedLibrary::FindAddress(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}
void LoadedLibrary::Unload() {
  if (handle_ != nullptr) FreeLibrary(static_cast<HMODULE>(std::exchange(handle_, nullptr)));
}

size_t LoadedLibrary::WritableBytes() {
  const auto* const base = reinterpret_cast<const uint8_t*>(GetModuleHandleA(MEDIA_ADAPTER_LIBRARY));
  if (base == nullptr) return 0;
  const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  size_t bytes = 0;
  for (const auto& section : std::span(IMAGE_FIRST_SECTION(headers), headers->FileHeader.NumberOfSections)) {
    if ((section.Characteristics & IMAGE_SCN_MEM_WRITE) != 0) bytes += section.Misc.VirtualSize;
  }
  return bytes;
}

size_t AllocatedBytes() {
  std::array<HANDLE, 64> heaps{};
  size_t bytes = 0;
  for (const HANDLE heap : std::span(heaps).first(GetProcessHeaps(heaps.size(), heaps.data()))) {
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry) != 0) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
    }
  }
  return bytes;
}

size_t OpenHandles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

size_t ThreadLocalIndices() {
  std::vector<DWORD> indices;
  for (DWORD index = TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = TlsAlloc()) indices.push_back(index);
  for (const DWORD index : indices) TlsFree(index);
  return indices.size();
}

}  // namespace media_adapter::system_tests

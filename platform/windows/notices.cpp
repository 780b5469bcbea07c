#include "platform/notices.h"

#include "platform/windows/system.h"

namespace media_adapter::platform {

// In front of the application's windows: without an owner it would open behind them.
void ShowError(const char* text) {
  MessageBoxA(nullptr, text, "Media adapter", MB_OK | MB_ICONSTOP | MB_TASKMODAL | MB_SETFOREGROUND | MB_TOPMOST);
}

void TraceLine(const char* text) {
  OutputDebugStringA(text);
  OutputDebugStringA("\n");
}

uint32_t LastSystemError() { return GetLastError(); }

}  // namespace media_adapter::platform

#include "platform/notices.h"

#include <string>

#include "platform/windows/system.h"

namespace media_adapter::platform {

void ShowError(const char* text) { MessageBoxA(nullptr, text, "Media adapter", MB_OK | MB_ICONSTOP | MB_TASKMODAL); }

void TraceLine(const char* text) { OutputDebugStringA((std::string(text) + "\n").c_str()); }

uint32_t LastSystemError() { return GetLastError(); }

}  // namespace media_adapter::platform

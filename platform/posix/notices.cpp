#include "platform/notices.h"

#include <syslog.h>

#include <cerrno>
#include <cstdio>

namespace media_adapter::platform {

void ShowError(const char* text) { std::fprintf(stderr, "%s\n", text); }

void TraceLine(const char* text) { syslog(LOG_USER | LOG_DEBUG, "%s", text); }

uint32_t LastSystemError() { return static_cast<uint32_t>(errno); }

}  // namespace media_adapter::platform

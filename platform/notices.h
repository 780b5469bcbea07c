// The two ways in which the library speaks outside its results: an error box for start-up failures, and trace lines.
#pragma once

#include <cstdint>

namespace media_adapter::platform {

// Shows `text` with a stop icon and an OK button, or on standard error where there is no desktop.
void ShowError(const char* text);

// One diagnostic line for developers (debugger output, or the system log at debug level).
void TraceLine(const char* text);

// The code of the system's last error on this thread.
uint32_t LastSystemError();

}  // namespace media_adapter::platform

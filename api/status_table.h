// The English texts of the statuses.
#pragma once

#include <cstdint>
#include <span>

namespace media_adapter {

// Copies the text of `code`, with its NUL, into `messageField` (MEDIA_ADAPTER_MESSAGE_SIZE chars). False, with the
// field untouched, when the code has no text.
bool LookupStatusText(uint32_t code, std::span<char> messageField);

}  // namespace media_adapter

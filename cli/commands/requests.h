// What commands that send one request share: the question before it, and the result after it.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "cli/commands/table.h"

namespace media_adapter::cli {

// Asks before `what`; an exit code.
int Confirm(const Context& context, const char* operation, const std::string& what);

// For a command that is one request without data to show: an exit code.
int FinishRequest(const Context& context, const char* operation, const Answer& answer, const char* done);

// Ok unless another device that answered the search has this address.
Answer CheckNewAddress(const Session& session, std::span<const uint8_t, 4> address);

}  // namespace media_adapter::cli

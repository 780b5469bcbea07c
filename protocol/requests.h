// The senders of settings and tests. Each builds its request's body, sends it and waits for its end; the records that
// they send and fill are those of protocol_state.h.
#pragma once

#include <cstdint>
#include <span>

#include "protocol/session.h"
#include "protocol/status_code.h"

namespace media_adapter {

using ElementId = uint16_t;  // class * 256 + index

// Refills the device table. Returns the number of devices found.
uint32_t Search();

// Reads the named elements into configurationData. Returns 0; 4 (list too long), nothing sent; 253; or the device's
// status. After a failure the image holds what it held.
StatusCode GetConfiguration(std::span<const ElementId> elements, const SessionValues& session);

// Broadcasts ipConfiguration. Returns 0, 253 or the device's status.
StatusCode SetIPConfiguration(const SessionValues& session);

// Sends the named elements from configurationData. Returns 0; 1, 3 or 4 as BuildConfigElements, nothing sent; 253; or
// the device's status.
StatusCode SetConfiguration(std::span<const ElementId> elements, const SessionValues& session);

// Sends testData's parameters. Returns 0, 253 or the device's status.
StatusCode SetTest(const SessionValues& session);

}  // namespace media_adapter

// The bodies of the settings and test requests, written into the send buffer behind the header.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "protocol/status_code.h"

namespace media_adapter {

struct BuiltBody {
  StatusCode status = MEDIA_ADAPTER_OK;  // another one: the body must not be sent
  size_t size = 0;                       // bytes
};

// The elements to read, as (class, index) pairs in the list's order. Status 4 for more than 750.
BuiltBody BuildElementIdList(std::span<const uint16_t> elements);

// The named elements with their values from `source`, in the list's order; elements that cannot be written are left
// out. Secret elements are enciphered under `password`. Values are the device's to judge, but for what would make the
// body wrong: status 1 for an (10,0) count above 32, 3 for a secret element with an empty password, 4 for a body above
// 1500 bytes.
BuiltBody BuildConfigElements(std::span<const uint16_t> elements, std::string_view password,
                              const ConfigurationData& source);

// The eleven test items from testData's parameters, 122 bytes.
BuiltBody BuildTestElements();

}  // namespace media_adapter

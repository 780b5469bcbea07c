// Settings as JSON: the file that "config save" writes and "config load" reads, and the values in --json output. The
// file holds what can be written to a device and is no secret, one line an element in the order of the element table,
// so that two files compare line by line:
//
//   {
//     "format": 1,
//     "settings": {
//       "0.0": "Lounge",
//       "1.0": "10.0.0.7",
//       "1.3": 1,
//       "10.0": ["02005e000001"]
//     }
//   }
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/element_table.h"

namespace media_adapter::cli {

// Number: a JSON number; list: an array of texts; any other form: the text of cli/element_value.h.
nlohmann::ordered_json JsonValue(const ElementRow& row, std::span<const uint8_t> field);

// True for the elements that a settings file holds.
bool IsInSettingsFile(const ElementRow& row);

// The file with those of `rows` that it may hold. image: a ConfigurationData record.
std::string WriteSettings(std::span<const ElementRow* const> rows, std::span<const uint8_t> image);

struct LoadedSetting {
  const ElementRow* row = nullptr;
  std::vector<uint8_t> field;  // row->maxSize bytes
};

struct LoadedSettings {
  std::vector<LoadedSetting> settings;
  std::vector<std::string> problems;  // the file is good only when there are none
};

LoadedSettings ReadSettings(std::string_view file);

}  // namespace media_adapter::cli

#include "cli/local/settings_file.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "cli/console/text.h"
#include "cli/device/element_value.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

constexpr int kFormat = 1;

// The value as ParseValue takes it; none when its JSON kind does not fit the form.
std::optional<std::string> TextOf(const ElementRow& row, const ordered_json& value) {
  if (row.form == ElementForm::Number) {
    return value.is_number_unsigned() ? std::optional(std::to_string(value.get<uint64_t>())) : std::nullopt;
  }
  if (row.form != ElementForm::List) return value.is_string() ? std::optional(value.get<std::string>()) : std::nullopt;
  if (!value.is_array()) return std::nullopt;
  std::string text;
  for (const ordered_json& entry : value) {
    // Joined, such entries would be none, or two.
    if (!entry.is_string() || entry.get<std::string>().empty()) return std::nullopt;
    if (entry.get<std::string>().find(',') != std::string::npos) return std::nullopt;
    text.append(text.empty() ? "" : ",").append(entry.get<std::string>());
  }
  return text;
}

void ReadSetting(const std::string& name, const ordered_json& value, LoadedSettings& loaded) {
  const auto complain = [&](const std::string& problem) { loaded.problems.push_back(Escape(name) + ": " + problem); };
  const ElementRow* const row = FindElementByName(name);
  if (row == nullptr) return complain("no such element");
  if (row->form == ElementForm::Secret) return complain("is secret and never taken from a settings file");
  if (!row->isWritten) return complain("cannot be written");
  const auto isSame = [=](const LoadedSetting& setting) { return setting.row == row; };
  if (std::ranges::any_of(loaded.settings, isSame)) return complain("is " + ElementName(*row) + ", which stands twice");
  const std::optional<std::string> text = TextOf(*row, value);
  ParsedValue parsed;
  if (text) parsed = ParseValue(*row, *text);
  if (!text || !parsed.problem.empty()) {
    const bool isArray = row->form == ElementForm::List;
    return complain((isArray ? "must be an array: " : "must be ") + DescribeValues(*row));
  }
  loaded.settings.push_back({row, std::move(parsed.field)});
}

std::string LineOf(std::string_view file, size_t position) {
  return "line " + std::to_string(1 + std::ranges::count(file.substr(0, position), '\n')) + ": ";
}

// Parses the file and notes every name that stands twice: JSON would let the last one win in silence.
ordered_json Parse(std::string_view file, std::vector<std::string>& problems) {
  std::vector<std::set<std::string>> names;
  const auto check = [&](int, ordered_json::parse_event_t event, ordered_json& parsed) {
    if (event == ordered_json::parse_event_t::object_start) names.emplace_back();
    if (event == ordered_json::parse_event_t::object_end) names.pop_back();
    if (event == ordered_json::parse_event_t::key && !names.back().insert(parsed.get<std::string>()).second) {
      problems.push_back(Escape(parsed.get<std::string>()) + ": stands twice");
    }
    return true;
  };
  try {
    return ordered_json::parse(file, check);
  } catch (const ordered_json::parse_error& error) {
    problems.push_back(LineOf(file, error.byte) + "no valid JSON");
  } catch (const ordered_json::out_of_range& error) {  // its message ends in the number, in quotes
    const std::string_view message = error.what();
    const std::string_view number =
        message.substr(message.find('\'') + 1, message.rfind('\'') - message.find('\'') - 1);
    problems.push_back(LineOf(file, file.find(number)) + "the number " + Escape(number) + " is too large");
  }
  return {};
}

}  // namespace

ordered_json JsonValue(const ElementRow& row, std::span<const uint8_t> field) {
  const std::string text = FormatValue(row, field);
  if (row.form == ElementForm::Number) return std::stoull(text);
  if (row.form != ElementForm::List) return text;
  ordered_json entries = ordered_json::array();
  for (size_t at = 0; at < text.size(); at += 2 * kListEntrySize + 1) {
    entries.push_back(text.substr(at, 2 * kListEntrySize));
  }
  return entries;
}

bool IsInSettingsFile(const ElementRow& row) { return row.isRead && row.isWritten; }

std::string WriteSettings(std::span<const ElementRow* const> rows, std::span<const uint8_t> image) {
  ordered_json settings = ordered_json::object();
  for (const ElementRow* const row : rows) {
    if (IsInSettingsFile(*row)) {
      settings[ElementName(*row)] = JsonValue(*row, image.subspan(row->configOffset, row->maxSize));
    }
  }
  return ordered_json{{"format", kFormat}, {"settings", std::move(settings)}}.dump(2) + "\n";
}

LoadedSettings ReadSettings(std::string_view file) {
  LoadedSettings loaded;
  const ordered_json json = Parse(file, loaded.problems);
  if (!loaded.problems.empty()) return loaded;
  if (!json.is_object() || json.value("format", ordered_json()) != kFormat || !json.contains("settings") ||
      !json["settings"].is_object()) {
    loaded.problems.emplace_back("no settings file of format " + std::to_string(kFormat));
    return loaded;
  }
  for (const auto& [name, value] : json["settings"].items()) ReadSetting(name, value, loaded);
  return loaded;
}

}  // namespace media_adapter::cli

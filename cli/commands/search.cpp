// The "search" and "device" commands.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/table.h"
#include "cli/console/text.h"
#include "cli/device/device_choice.h"
#include "cli/device/element_value.h"
#include "cli/local/settings_file.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

std::span<const uint8_t> EntryField(const DeviceEntry& device, const ElementRow& row) {
  return std::span(reinterpret_cast<const uint8_t*>(&device), sizeof device).subspan(row.entryOffset, row.maxSize);
}

// The elements of a search entry that have no column of their own.
bool IsExtraColumn(const ElementRow& row) {
  return row.entryOffset != kNoOffset && row.entryOffset != offsetof(DeviceEntry, name) &&
         row.entryOffset != offsetof(DeviceEntry, ipAddress);
}

ordered_json DeviceJson(size_t index, const DeviceEntry& device) {
  ordered_json settings = ordered_json::object();
  for (const ElementRow& row : ElementTable()) {
    if (IsExtraColumn(row)) settings[ElementName(row)] = JsonValue(row, EntryField(device, row));
  }
  return {{"index", index},
          {"name", DeviceName(device)},
          {"address", AddressText(device)},
          {"mac", MacText(device)},
          {"settings", std::move(settings)}};
}

void PrintDevices(const Context& context, std::span<const size_t> shown, bool isLong) {
  const std::vector<DeviceEntry>& devices = context.session.Devices();
  if (context.output.isJson) {
    ordered_json list = ordered_json::array();
    for (const size_t i : shown) list.push_back(DeviceJson(i, devices[i]));
    return context.output.Json(list);
  }
  std::vector<Column> columns = {{"INDEX", true}, {"NAME"}, {"ADDRESS"}, {"MAC"}};
  std::vector<Row> rows;
  for (const size_t i : shown) {
    rows.push_back({std::to_string(i), DeviceName(devices[i]), AddressText(devices[i]), MacText(devices[i])});
  }
  for (const ElementRow& row : ElementTable()) {
    if (!isLong || !IsExtraColumn(row)) continue;
    columns.push_back({ElementName(row), row.form == ElementForm::Number});
    for (size_t i = 0; i < shown.size(); ++i) rows[i].push_back(FormatValue(row, EntryField(devices[shown[i]], row)));
  }
  context.output.Table(columns, rows);
}

int RunSearch(const Context& context, const std::string& name, bool isLong) {
  context.session.Search();
  const std::vector<DeviceEntry>& devices = context.session.Devices();
  // One device that is given is meant for other commands; several are the ones to list.
  std::vector<DeviceEntry> wanted = devices;
  int code = kSuccess;
  if (context.session.HasSeveral() && !devices.empty()) {
    wanted.clear();
    code = context.session.FindSeveral(wanted);
  }
  std::vector<size_t> shown;
  for (size_t i = 0; i < devices.size(); ++i) {
    const bool isNamed = DeviceName(devices[i]) == name || DeviceName(devices[i]) == Escape(name);
    const auto isThis = [&](const DeviceEntry& device) { return IsMacOf(device, MacText(devices[i])); };
    if ((name.empty() || isNamed) && std::ranges::any_of(wanted, isThis)) shown.push_back(i);
  }
  if (shown.empty() && !name.empty()) {
    return context.output.Failed("search " + Escape(name), Problem("no device of this name answered"));
  }
  if (devices.empty()) context.output.Error("search: " + context.session.DescribeSilence());
  if (!shown.empty() || context.output.isJson) PrintDevices(context, shown, isLong);
  return code;
}

int RunDevice(const Context& context, const std::string& selector) {
  if (!selector.empty()) context.session.SelectDevice(selector);
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const std::vector<DeviceEntry>& devices = context.session.Devices();
  const std::vector<size_t> shown = {static_cast<size_t>(context.session.Device() - devices.data())};
  PrintDevices(context, shown, false);
  return kSuccess;
}

}  // namespace

void DescribeSearch(CLI::App& parser, Context& context, Action& action) {
  auto name = std::make_shared<std::string>();
  auto isLong = std::make_shared<bool>(false);
  parser.add_option("NAME", *name, "Only the devices of exactly this name");
  parser.add_flag("-l,--long", *isLong, "All that the devices tell of themselves");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunSearch(context, *name, *isLong); }; });
}

void DescribeDeviceCommand(CLI::App& parser, Context& context, Action& action) {
  auto selector = std::make_shared<std::string>();
  parser.add_option("DEVICE", *selector, "Name, index or MAC");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunDevice(context, *selector); }; });
}

}  // namespace media_adapter::cli

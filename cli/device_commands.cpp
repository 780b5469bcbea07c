// Commands about the device itself: search, device, connect, disconnect, ip, format.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/device_choice.h"
#include "cli/element_value.h"
#include "cli/progress_bar.h"
#include "cli/settings_file.h"
#include "cli/terminal.h"
#include "cli/text.h"

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

// For a command that is one request without data to show.
int FinishRequest(const Context& context, const char* operation, const Answer& answer, const char* done) {
  if (!answer.IsOk()) return context.output.Failed(operation, answer);
  context.output.Note(done);
  if (context.output.isJson) context.output.Json(AnswerJson(answer));
  return kSuccess;
}

// Asks before `what`; an exit code.
int Confirm(const Context& context, const char* operation, const std::string& what) {
  if (!IsInputTerminal()) {
    return context.output.Failed(operation, Problem("asks first; give --yes when there is nobody to ask"), kUsage);
  }
  if (AskYes(what + " [y/N] ")) return kSuccess;
  return context.output.Failed(operation, Problem("not confirmed, nothing was sent"));
}

struct IpOptions {
  std::string address, value2, value3, mode;
  bool isConfirmed = false;
  bool isForced = false;
};

int RunIp(const Context& context, const IpOptions& options) {
  IpConfiguration configuration = {};
  const struct {
    uint8_t index;
    const std::string& text;
    std::span<uint8_t> target;
  } values[] = {{0, options.address, configuration.value1},
                {1, options.value2, configuration.value2},
                {2, options.value3, configuration.value3},
                {4, options.mode, {&configuration.addressMode, 1}}};
  for (const auto& value : values) {
    const ElementRow& row = *FindElement(1, value.index);
    const ParsedValue parsed = ParseValue(row, value.text);
    if (!parsed.problem.empty()) {
      return context.output.Failed("ip " + Escape(value.text),
                                   Problem("element " + ElementName(row) + " " + parsed.problem), kUsage);
    }
    std::ranges::copy(parsed.field, value.target.begin());
  }
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const std::string device = context.session.DescribeDevice();
  const Answer free = CheckNewAddress(context.session, configuration.value1);
  if (!options.isForced && !free.IsOk()) return context.output.Failed("ip " + options.address, free);
  if (!options.isConfirmed) {
    const std::string question = "Device " + device + " will have\n  address      " + options.address +
                                 "\n  element 1.1  " + options.value2 + "\n  element 1.2  " + options.value3 +
                                 "\n  element 1.4  " + options.mode + "\nSend this?";
    if (const int code = Confirm(context, "ip", question); code != kSuccess) return code;
  }
  const Answer answer = context.session.SetIpConfiguration(configuration);
  if (answer.IsOk() || answer.status == MEDIA_ADAPTER_NO_RESPONSE) context.session.ForgetSearch();
  return FinishRequest(context, "ip", answer, "set; the next command searches for the device's new address");
}

int RunFormat(const Context& context, bool isConfirmed) {
  const VolumeTurn turn(context.writer);
  if (turn.Code() != kSuccess) return turn.Code();
  // The password and whether there is storage at all come before the question.
  Answer answer = context.session.Connect();
  if (!answer.IsOk()) return context.output.Failed("format", answer);
  const std::string device = context.session.DescribeDevice();
  if (!isConfirmed) {
    const int code = Confirm(context, "format", "Delete everything on the volume of " + device + "?");
    if (code != kSuccess) return code;
  }
  {
    const ProgressBar bar("format " + device, 0, nullptr);
    answer = context.writer.Format();
  }
  return FinishRequest(context, "format", answer, "the volume is empty");
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

void DescribeConnect(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] {
    action = [&context] {
      const int code = context.session.Prepare();
      return code != kSuccess ? code : FinishRequest(context, "connect", context.session.Connect(), "connected");
    };
  });
}

void DescribeDisconnect(CLI::App& parser, Context& context, Action& action) {
  parser.callback([&] {
    action = [&context] {
      const int code = context.session.Prepare();
      return code != kSuccess ? code
                              : FinishRequest(context, "disconnect", context.session.Disconnect(), "disconnected");
    };
  });
}

void DescribeIp(CLI::App& parser, Context& context, Action& action) {
  auto options = std::make_shared<IpOptions>();
  parser.add_option("ADDRESS", options->address, "The device's new IPv4 address (element 1.0)")->required();
  parser.add_option("VALUE2", options->value2, "Element 1.1, an IPv4 address")->required();
  parser.add_option("VALUE3", options->value3, "Element 1.2, an IPv4 address")->required();
  parser.add_option("MODE", options->mode, "Element 1.4: 1 or 2")->required();
  parser.add_flag("-y,--yes", options->isConfirmed, "Do not ask");
  parser.add_flag("--force", options->isForced, "Set an address that another device has, too");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunIp(context, *options); }; });
}

void DescribeFormat(CLI::App& parser, Context& context, Action& action) {
  auto isConfirmed = std::make_shared<bool>(false);
  parser.add_flag("-y,--yes", *isConfirmed, "Do not ask");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunFormat(context, *isConfirmed); }; });
}

}  // namespace media_adapter::cli

// The "ip" command.
#include <algorithm>
#include <memory>

#include "cli/commands/requests.h"
#include "cli/commands/table.h"
#include "cli/console/text.h"
#include "cli/device/element_value.h"

namespace media_adapter::cli {
namespace {

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

}  // namespace

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

}  // namespace media_adapter::cli

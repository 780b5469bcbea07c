// The "test" command.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>

#include "cli/commands/table.h"
#include "cli/console/interrupts.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/device/element_value.h"

namespace media_adapter::cli {
namespace {

using namespace std::chrono_literals;

// The values that a test sends, as elements of class 15 that stand in TestParameters.
constexpr ElementRow kTestRows[] = {
    {15, 0, ElementForm::Number, 1, 1, 0, false, true, kNoOffset},
    {15, 2, ElementForm::Number, 1, 1, 1, false, true, kNoOffset},
    {15, 3, ElementForm::Number, 1, 1, 2, false, true, kNoOffset},
    {15, 4, ElementForm::Number, 1, 1, 5, false, true, kNoOffset},
    {15, 5, ElementForm::Number, 1, 1, 3, false, true, kNoOffset},
    {15, 6, ElementForm::Number, 1, 1, 4, false, true, kNoOffset},
    {15, 7, ElementForm::Number, 1, 1, 12, false, true, kNoOffset},
    {15, 8, ElementForm::Number, 2, 2, 10, false, true, kNoOffset},
    {15, 9, ElementForm::Number, 2, 2, 6, false, true, kNoOffset},
    {15, 10, ElementForm::Number, 2, 2, 8, false, true, kNoOffset},
    {15, 11, ElementForm::Bytes, 64, 64, 13, false, true, kNoOffset},
};

// Stores "15.N=VALUE" in `parameters`; the problem, or "".
std::string SetTestParameter(const std::string& argument, TestParameters& parameters) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos) return "must be ELEMENT=VALUE";
  const auto row = std::ranges::find_if(
      kTestRows, [&](const ElementRow& r) { return ElementName(r) == argument.substr(0, equals); });
  if (row == std::end(kTestRows)) return "is no element of a test";
  const ParsedValue parsed = ParseValue(*row, argument.substr(equals + 1));
  if (parsed.problem.empty()) {
    std::memcpy(reinterpret_cast<uint8_t*>(&parameters) + row->configOffset, parsed.field.data(), parsed.field.size());
  }
  return parsed.problem;
}

using Counters = std::array<uint32_t, 3>;

// The library's worker writes each counter with one store, at any time.
Counters ReadCounters(const TestData& data) {
  Counters counters = {};
  for (size_t i = 0; i < counters.size(); ++i) {
    counters[i] = std::atomic_ref(const_cast<uint32_t&>(data.counters[i])).load(std::memory_order_relaxed);
  }
  return counters;
}

void PrintCounters(const Output& output, const Counters& counters) {
  if (output.isJson) return output.Json({{"counters", counters}});
  const char separator = IsOutputTerminal() ? ' ' : '\t';
  std::string line;
  for (const uint32_t counter : counters)
    line += (line.empty() ? "" : std::string(1, separator)) + std::to_string(counter);
  output.Line(line);
}

// Shows the counters until SIGINT or the time is over: on a terminal one line that changes, elsewhere a line a change.
void WatchCounters(const Output& output, const TestData& data, int seconds) {
  const InterruptWatch watch;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  const bool isLive = IsOutputTerminal() && IsErrorTerminal() && !output.isJson;
  std::optional<Counters> shown;
  while (!IsInterrupted() && (seconds <= 0 || std::chrono::steady_clock::now() < end)) {
    const Counters counters = ReadCounters(data);
    if (counters != shown) {
      if (isLive) {
        output.Fleeting("test (Ctrl-C ends it): " + std::to_string(counters[0]) + "  " + std::to_string(counters[1]) +
                        "  " + std::to_string(counters[2]));
      } else {
        PrintCounters(output, counters);
      }
      shown = counters;
    }
    std::this_thread::sleep_for(100ms);
  }
  ForgetInterrupt();
  output.Fleeting("");
  if (const Counters counters = ReadCounters(data); isLive || counters != shown) PrintCounters(output, counters);
}

int RunTest(const Context& context, std::span<const std::string> arguments, int seconds) {
  TestParameters parameters = {};
  for (const std::string& argument : arguments) {
    const std::string problem = SetTestParameter(argument, parameters);
    if (!problem.empty()) return context.output.Failed("test " + Escape(argument), Problem(problem), kUsage);
  }
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const TestData* data = nullptr;
  const Answer answer = context.session.SetTest(parameters, data);
  if (!answer.IsOk() || data == nullptr) return context.output.Failed("test", answer);
  WatchCounters(context.output, *data, seconds);
  return kSuccess;
}

}  // namespace

void DescribeTest(CLI::App& parser, Context& context, Action& action) {
  auto seconds = std::make_shared<int>(0);
  CLI::Option* const values =
      parser.add_option("ELEMENT=VALUE", "Values of the test, 15.0 and 15.2 to 15.11; 0 when not given");
  values->expected(0, -1)->allow_extra_args();
  parser.add_option("-s,--seconds", *seconds, "End after this time; otherwise Ctrl-C ends it")
      ->check(CLI::Range(1, 1000000));
  parser.callback([=, &context, &action] {
    action = [=, &context, arguments = values->reduced_results()] { return RunTest(context, arguments, *seconds); };
  });
}

}  // namespace media_adapter::cli

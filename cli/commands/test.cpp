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
#include <vector>

#include "cli/commands/table.h"
#include "cli/console/interrupts.h"
#include "cli/console/progress_text.h"
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
using Clock = std::chrono::steady_clock;

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

// The counters on the last lines of a terminal: each with what it is now and how much it grew, a column a half second.
class LivePlot {
 public:
  explicit LivePlot(const Output& output) : output_(output) {}

  void Show(const Counters& counters, Clock::time_point now) {
    if (!last_) last_ = counters;
    for (size_t i = 0; i < counters.size(); ++i) {
      if (growth_[i].empty() || now >= columnEnd_) growth_[i].push_back(0);
      growth_[i].back() += std::max(counters[i], (*last_)[i]) - (*last_)[i];  // one may begin anew
    }
    if (now >= columnEnd_) columnEnd_ = now + kColumnTime;
    last_ = counters;
    std::string text = "test (Ctrl-C ends it)";
    const size_t columns = TerminalColumns() - std::min(TerminalColumns(), kNumberColumns + 3);
    for (size_t i = 0; i < counters.size(); ++i) {
      const std::string number = std::to_string(counters[i]);
      text += "\n" + std::string(kNumberColumns - number.size(), ' ') + number + "  " + Plot(growth_[i], columns);
    }
    output_.Fleeting(text);
  }

 private:
  static constexpr auto kColumnTime = 500ms;
  static constexpr size_t kNumberColumns = 10;

  const Output& output_;
  std::optional<Counters> last_;
  std::array<std::vector<uint32_t>, 3> growth_;
  Clock::time_point columnEnd_ = Clock::now() + kColumnTime;
};

// Shows the counters until SIGINT or the time is over: on a terminal a plot that moves, elsewhere a line a change.
void WatchCounters(const Output& output, const TestData& data, int seconds) {
  const InterruptWatch watch;
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  const bool isLive = IsOutputTerminal() && IsErrorTerminal() && !output.isJson;
  std::optional<Counters> shown;
  LivePlot plot(output);
  while (!IsInterrupted() && (seconds <= 0 || Clock::now() < end)) {
    const Counters counters = ReadCounters(data);
    if (isLive) {
      plot.Show(counters, Clock::now());
    } else if (counters != shown) {
      PrintCounters(output, counters);
    }
    shown = counters;
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

// The "format" command.
#include <memory>

#include "cli/commands/requests.h"
#include "cli/commands/table.h"
#include "cli/console/progress_bar.h"
#include "cli/console/terminal.h"

namespace media_adapter::cli {
namespace {

int RunFormat(const Context& context, bool isConfirmed) {
  // Without an answer it would come to nothing: that is said before a wait for the device or for another run.
  if (!isConfirmed && !IsInputTerminal()) return Confirm(context, "format", {});
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
    const ProgressBar bar("format " + device);
    answer = context.writer.Format();
  }
  return FinishRequest(context, "format", answer, "the volume is empty");
}

}  // namespace

void DescribeFormat(CLI::App& parser, Context& context, Action& action) {
  auto isConfirmed = std::make_shared<bool>(false);
  parser.add_flag("-y,--yes", *isConfirmed, "Do not ask");
  parser.callback([=, &context, &action] { action = [=, &context] { return RunFormat(context, *isConfirmed); }; });
}

}  // namespace media_adapter::cli

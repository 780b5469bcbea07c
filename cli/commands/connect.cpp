// The "connect" and "disconnect" commands.
#include "cli/commands/requests.h"
#include "cli/commands/table.h"

namespace media_adapter::cli {

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

}  // namespace media_adapter::cli

#include "cli/console/colors.h"

#include <algorithm>
#include <cstdlib>

#include "cli/console/terminal.h"

namespace media_adapter::cli {
namespace {

constexpr std::string_view kUsualColors = "di=01;34";

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return lower;
}

std::string_view Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

Colors::Colors(std::string_view lsColors) {
  while (!lsColors.empty()) {
    const size_t end = std::min(lsColors.find(':'), lsColors.size());
    const std::string_view part = lsColors.substr(0, end);
    lsColors.remove_prefix(std::min(end + 1, lsColors.size()));
    const size_t equals = part.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = part.substr(0, equals), code = part.substr(equals + 1);
    if (code.find_first_not_of("0123456789;") != std::string_view::npos) continue;
    if (key == "di") folder_ = code;
    if (key.starts_with('*')) ends_.emplace_back(LowerCase(key.substr(1)), code);
  }
}

std::string Colors::Paint(std::string text, bool isFolder) const {
  std::string_view code = folder_;
  if (!isFolder) {
    const std::string lower = LowerCase(text);
    const auto fits = [&](const auto& end) { return lower.ends_with(end.first); };
    const auto found = std::find_if(ends_.rbegin(), ends_.rend(), fits);  // the last one holds
    code = found != ends_.rend() ? std::string_view(found->second) : std::string_view();
  }
  return code.empty() ? text : "\033[" + std::string(code) + "m" + text + "\033[0m";
}

Colors ChooseColors(std::string_view when) {
  const bool isWanted = IsOutputTerminal() && Variable("NO_COLOR").empty() && Variable("TERM") != "dumb";
  if (when == "never" || (when == "auto" && !isWanted)) return {};
  const std::string_view own = Variable("LS_COLORS");
  return Colors(own.empty() ? kUsualColors : own);
}

}  // namespace media_adapter::cli

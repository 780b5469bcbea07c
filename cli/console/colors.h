// Colours for names in lists, by the variable that ls takes its own from: LS_COLORS with its keys "di" for folders and
// "*.ext" for the ends of file names. Without the variable folders are bold blue.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace media_adapter::cli {

class Colors {
 public:
  Colors() = default;  // none
  // lsColors: the variable's value.
  explicit Colors(std::string_view lsColors);

  // text: printable; its end decides for a file.
  std::string Paint(std::string text, bool isFolder) const;

 private:
  std::string folder_;
  std::vector<std::pair<std::string, std::string>> ends_;  // of file names in lower case, and the codes for them
};

// Those that `when`, one of "auto", "always" and "never", asks for: "auto" gives some on a terminal unless the variable
// NO_COLOR says otherwise.
Colors ChooseColors(std::string_view when);

}  // namespace media_adapter::cli

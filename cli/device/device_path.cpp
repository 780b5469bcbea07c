#include "cli/device/device_path.h"

#include <algorithm>
#include <vector>

#include "cli/device/volume_name.h"

namespace media_adapter::cli {
namespace {

constexpr std::string_view kSeparators = "\\/";

std::vector<std::string_view> Components(std::string_view path) {
  std::vector<std::string_view> components;
  while (!path.empty()) {
    const size_t end = std::min(path.find_first_of(kSeparators), path.size());
    components.push_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return components;
}

std::string_view WithoutTrailingSpaces(std::string_view name) { return name.substr(0, name.find_last_not_of(' ') + 1); }

char LowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

}  // namespace

std::string ResolveDevicePath(std::string_view folder, std::string_view argument) {
  const bool isAbsolute = !argument.empty() && kSeparators.find(argument.front()) != std::string_view::npos;
  std::vector<std::string_view> path = isAbsolute ? std::vector<std::string_view>() : Components(folder);
  for (const std::string_view component : Components(argument)) {
    if (component != "..") {
      path.push_back(component);
      continue;
    }
    while (!path.empty() && (path.back().empty() || path.back() == ".")) path.pop_back();
    if (!path.empty()) path.pop_back();
  }
  std::string result;
  for (const std::string_view component : path) {
    if (!component.empty() && component != ".") result.append(kRootPath).append(component);
  }
  return result.empty() ? std::string(kRootPath) : result;
}

std::string JoinDevicePath(std::string_view folder, std::string_view name) {
  std::string path(folder == kRootPath ? std::string_view() : folder);
  return path.append(kRootPath).append(name);
}

DevicePathParts SplitDevicePath(std::string_view path) {
  const size_t last = path.find_last_of('\\');
  return {std::string(last == 0 ? kRootPath : path.substr(0, last)), std::string(path.substr(last + 1))};
}

std::string DisplayPath(std::string_view path) {
  std::string text;
  for (const std::string_view component : Components(path)) {
    if (!component.empty()) text.append("/").append(ShowName(component));
  }
  return text.empty() ? "/" : text;
}

std::string FoldDeviceName(std::string_view path) {
  std::string folded;
  for (const std::string_view name : Components(path)) folded.append(kRootPath).append(WithoutTrailingSpaces(name));
  std::ranges::transform(folded, folded.begin(), LowerCase);
  return folded;
}

}  // namespace media_adapter::cli

#include "fat/short_name.h"

#include <algorithm>
#include <bit>
#include <string>

#include "fat/device_path.h"

namespace media_adapter {
namespace {

constexpr std::string_view kNeedLongName = "+,;=[] ";
constexpr std::string_view kReplacedInAlias = "+,;=[].";
constexpr char kReplacement = '_';
constexpr size_t kAliasBaseSize = 6;  // leaves room for the tail

struct NameParts {
  std::string_view base;
  std::string_view extension;  // behind the last '.'; empty without one
};

NameParts Split(std::string_view name) {
  const size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return {name, {}};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

bool HasLower(std::string_view text) { return std::ranges::any_of(text, IsLower); }

bool IsMixedCase(std::string_view text) { return HasLower(text) && std::ranges::any_of(text, IsUpper); }

bool IsPlainName(std::string_view name) {
  if (name.find_first_of(kNeedLongName) != std::string_view::npos || std::ranges::count(name, '.') > 1) return false;
  const auto [base, extension] = Split(name);
  return base.size() <= kBaseSize && extension.size() <= kExtensionSize && !IsMixedCase(base) &&
         !IsMixedCase(extension);
}

std::string WithoutSpaces(std::string_view name) {
  std::string compact(name);
  std::erase(compact, ' ');
  return compact;
}

// Puts `text`, in upper case, at `offset` of the name; at most `size` characters.
void Put(ShortName11& name, size_t offset, std::string_view text, size_t size) {
  std::ranges::transform(text.substr(0, size), name.begin() + static_cast<std::ptrdiff_t>(offset),
                         [](char c) { return static_cast<uint8_t>(ToUpper(c)); });
}

ShortName11 Compose(std::string_view base, std::string_view extension) {
  ShortName11 name;
  name.fill(' ');
  Put(name, 0, base, kBaseSize);
  Put(name, kBaseSize, extension, kExtensionSize);
  if (name[0] == kDeleted) name[0] = kStoredE5;
  return name;
}

std::string ForAlias(std::string_view text, size_t size) {
  std::string part(text.substr(0, size));
  const auto isReplaced = [](char c) { return kReplacedInAlias.find(c) != std::string_view::npos; };
  std::ranges::replace_if(part, isReplaced, kReplacement);
  return part;
}

}  // namespace

size_t EntriesNeededForName(std::string_view name) {
  if (IsPlainName(name)) return 1;
  return (name.size() + kLongNamePartSize - 1) / kLongNamePartSize + 1;
}

PlainName StorePlainName(std::string_view name) {
  const std::string compact = WithoutSpaces(name);
  const auto [base, extension] = Split(compact);
  const int flags = (HasLower(base) ? kLowerCaseBase : 0) | (HasLower(extension) ? kLowerCaseExtension : 0);
  return {Compose(base, extension), static_cast<uint8_t>(flags)};
}

ShortName11 MakeAlias(std::string_view name, int number) {
  const std::string compact = WithoutSpaces(name);
  const auto [wholeBase, extension] = Split(compact);
  const std::string tail = "~" + std::to_string(number);
  std::string base = ForAlias(wholeBase, kAliasBaseSize);
  // A longer tail takes the place of the last base character, if there is one.
  if (tail.size() > 2 && !base.empty()) base.pop_back();
  return Compose(base + tail, ForAlias(extension, kExtensionSize));
}

uint8_t ShortNameChecksum(const ShortName11& name) {
  uint8_t sum = 0;
  for (const uint8_t byte : name) sum = static_cast<uint8_t>(std::rotr(sum, 1) + byte);
  return sum;
}

}  // namespace media_adapter

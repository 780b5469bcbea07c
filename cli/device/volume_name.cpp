#include "cli/device/volume_name.h"

#include "cli/console/text.h"
#include "cli/local/local_name.h"

namespace media_adapter::cli {
namespace {

constexpr bool IsControl(uint32_t code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

void AppendUtf8(std::string& text, uint8_t code) {
  if (code >= 0x80) text += static_cast<char>(0xC0 | code >> 6);
  text += static_cast<char>(code >= 0x80 ? 0x80 | (code & 0x3F) : code);
}

// The byte for the character that `text` starts with, which is taken off. False with the problem in `name`.
bool TakeCharacter(std::string_view& text, VolumeName& name) {
  const Character character = kIsDosHost ? Character{static_cast<uint8_t>(text[0]), 1} : DecodeCharacter(text);
  if (character.length == 0) {
    name.problem = "no valid UTF-8: " + Escape(text);
  } else if (character.code > 0xFF) {
    name.problem = "a volume cannot hold \"" + Escape(text.substr(0, character.length)) +
                   "\" in a name: its characters end at U+00FF";
  } else {
    name.bytes += static_cast<char>(character.code);
    text.remove_prefix(character.length);
  }
  return name.problem.empty();
}

}  // namespace

std::string ShowName(std::string_view bytes) {
  if (kIsDosHost) return Escape(bytes);
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    if (c == '\\') {
      text += "\\\\";
    } else if (IsControl(byte)) {
      text.append("\\x").append(HexByte(byte));
    } else {
      AppendUtf8(text, byte);
    }
  }
  return text;
}

std::string LocalNameFor(std::string_view bytes) {
  if (kIsDosHost) return std::string(bytes);
  std::string name;
  for (const char c : bytes) AppendUtf8(name, static_cast<uint8_t>(c));
  return name;
}

VolumeName VolumeNameFor(std::string_view localName) {
  VolumeName name;
  while (!localName.empty() && TakeCharacter(localName, name)) {
  }
  return name;
}

VolumeName TypedPath(std::string_view text) {
  VolumeName path;
  while (!text.empty()) {
    const auto escaped = kIsDosHost ? std::nullopt : Unescape(text.substr(0, 4));
    const bool isEscape = text.starts_with("\\x") && escaped && escaped->size() == 1;
    if (isEscape && escaped->front() == '\0') {
      path.problem = "a volume cannot hold \"\\x00\" in a name";
      break;
    }
    if (isEscape && IsControl(static_cast<uint8_t>(escaped->front()))) {
      path.bytes += *escaped;
      text.remove_prefix(4);
    } else if (text[0] == '\\' || text[0] == '/') {
      path.bytes += '\\';
      text.remove_prefix(1);
    } else if (!TakeCharacter(text, path)) {
      break;
    }
  }
  return path;
}

}  // namespace media_adapter::cli

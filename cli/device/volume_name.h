// Names on a volume are bytes, and byte XX is the character U+00XX. On systems whose texts are UTF-8 the tool
// translates: between a name's bytes, what is printed and typed for it, and the name of a local file. On Windows all
// three are the bytes of the process's code page.
//
// What is printed is valid UTF-8 that can be typed back: a control character (00 to 1f, 7f to 9f) is written "\xNN".
#pragma once

#include <string>
#include <string_view>

namespace media_adapter::cli {

// A name for printing.
std::string ShowName(std::string_view bytes);

// The name of a local file for it. Not yet safe to use: see IsSafeLocalName.
std::string LocalNameFor(std::string_view bytes);

struct VolumeName {
  std::string bytes;
  std::string problem;  // why there are none; empty when there are
};

// The bytes for the name of a local file.
VolumeName VolumeNameFor(std::string_view localName);

// The bytes for a typed path, its separators made "\".
VolumeName TypedPath(std::string_view text);

}  // namespace media_adapter::cli

// What may stand in a word: for the shell's Tab key, and for command lines that bash and zsh complete. All that the
// option parser knows comes from it; the table of commands tells the rest. Nothing here starts a search or asks.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/commands/table.h"

namespace media_adapter::cli {

struct Candidate {
  std::string text;       // whole, unless it ends in "/" or "="
  std::string summary{};  // "" where the text says it
};

struct Candidates {
  std::string prefix;  // of the word, which stays: the path up to its last separator
  std::vector<Candidate> items;
  bool isAboutDevices = false;  // what a search has found tells more
};

// words: those before the word that begins with `typed`, parsed as far as that is possible.
Candidates FindCandidates(const CLI::App& parser, std::span<const std::string> words, std::string_view typed,
                          Context& context);

// The values of an option in an unfinished command line, in their order.
std::vector<std::string> OptionValues(const CLI::App& parser, std::span<const std::string> words, const char* option);

// The words of a command line up to the cursor, as bash reads it but for the quotation marks, which are taken off. The
// last is the unfinished one, which may be empty.
std::vector<std::string> SplitBashLine(std::string_view line);

struct Completion {
  size_t start = 0;                     // of the word in the line
  std::string replacement;              // for the line from `start` on; empty when there is nothing to add
  std::vector<std::string> candidates;  // when several go on differently: what to show, escaped
};

// line: of the shell, up to the cursor. Lists one folder of the device when a device has been chosen already.
Completion Complete(std::string_view line, Context& context);

}  // namespace media_adapter::cli

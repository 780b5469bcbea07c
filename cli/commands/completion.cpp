#include "cli/commands/completion.h"

#include <algorithm>
#include <filesystem>

#include "cli/commands/items.h"
#include "cli/console/text.h"
#include "cli/console/words.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

char LowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::ranges::equal(text.substr(0, prefix.size()), prefix, {}, LowerCase, LowerCase);
}

std::vector<std::string> CommandNames() {
  std::vector<std::string> names;
  for (const Command& command : CommandTable()) names.emplace_back(command.name);
  return names;
}

// No quotation can hold such a name.
bool HasBothQuotes(const std::string& name) {
  return name.find('"') != std::string::npos && name.find('\'') != std::string::npos;
}

// Names of the folder that a word points into; folders end in "/".
std::vector<std::string> DeviceNames(std::string_view folder, Context& context) {
  std::vector<std::string> names;
  if (context.session.Device() == nullptr) return names;
  const VolumeName typed = TypedPath(folder);
  if (!typed.problem.empty()) return names;
  for (const ListingEntry& entry : context.session.List(context.session.Resolve(typed.bytes)).entries) {
    if (!IsDotEntry(entry)) names.push_back(ShowName(EntryName(entry)) + (IsFolder(entry) ? "/" : ""));
  }
  std::erase_if(names, HasBothQuotes);
  return names;
}

std::vector<std::string> LocalNames(std::string_view folder) {
  std::vector<std::string> names;
  std::error_code error;
  const fs::path path = folder.empty() ? fs::path(".") : fs::path(folder);
  for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    names.push_back(LocalText(entry->path().filename()) + (entry->is_directory(unknown) ? "/" : ""));
  }
  // A name that is shown otherwise than it is written would not be safe to show while it is edited.
  std::erase_if(names, [](const std::string& name) { return HasBothQuotes(name) || Escape(name) != name; });
  return names;
}

// Whole characters of UTF-8.
std::string CommonPrefix(std::span<const std::string> names) {
  const std::string& first = names.front();
  size_t length = first.size();
  for (const std::string& name : names) {
    length = std::min(length, static_cast<size_t>(std::ranges::mismatch(first, name).in1 - first.begin()));
  }
  const auto isInside = [&] { return length > 0 && length < first.size() && (first[length] & 0xC0) == 0x80; };
  while (isInside()) --length;
  return first.substr(0, length);
}

// The word as it is typed: quoted when it must be, the quotation and the word ended when it is whole.
std::string Quote(const std::string& text, char quote, bool isWhole) {
  if (quote == 0 && text.find_first_of(" \t'\"") != std::string::npos) quote = '"';
  if (quote != 0 && text.find(quote) != std::string::npos) quote = quote == '"' ? '\'' : '"';
  std::string typed = quote != 0 ? quote + text : text;
  if (isWhole && quote != 0) typed += quote;
  return isWhole ? typed + ' ' : typed;
}

Completion Offer(const LastWord& word, std::string_view folder, std::vector<std::string> names) {
  const std::string_view typed = std::string_view(word.text).substr(folder.size());
  std::erase_if(names, [&](const std::string& n) { return !StartsWithIgnoringCase(n, typed); });
  Completion completion = {.start = word.start, .replacement = {}, .candidates = {}};
  if (names.empty()) return completion;
  const std::string common = CommonPrefix(names);
  const bool isWhole = names.size() == 1 && !common.ends_with('/');
  if (isWhole || common.size() > typed.size()) {
    completion.replacement = Quote(std::string(folder) + common, word.quote, isWhole);
  } else {
    std::ranges::sort(names);
    completion.candidates = std::move(names);
  }
  return completion;
}

}  // namespace

Completion Complete(std::string_view line, Context& context) {
  const LastWord word = FindLastWord(line);
  if (word.isFirst) return Offer(word, "", CommandNames());
  const std::vector<std::string> words = SplitWords(line.substr(0, word.start)).value_or(std::vector<std::string>());
  if (words.empty()) return {};
  const auto command = std::ranges::find(CommandTable(), words.front(), &Command::name);
  const Completes completes = command != CommandTable().end() ? command->completes : Completes::Nothing;
  const std::string_view folder = std::string_view(word.text).substr(0, word.text.find_last_of("\\/") + 1);
  switch (completes) {
    case Completes::Nothing:
      return {};
    case Completes::Commands:
      return Offer(word, "", CommandNames());
    case Completes::ConfigCommands:
      return words.size() == 1 ? Offer(word, "", {"get", "set", "save", "load"}) : Completion();
    case Completes::LocalThenDevicePaths: {
      Completion local = Offer(word, folder, LocalNames(folder));
      if (!local.replacement.empty() || !local.candidates.empty()) return local;
      break;
    }
    case Completes::DevicePaths:
      break;
  }
  return Offer(word, folder, DeviceNames(folder, context));
}

}  // namespace media_adapter::cli

#include <algorithm>
#include <filesystem>

#include "cli/commands/completion.h"
#include "cli/commands/items.h"
#include "cli/console/text.h"
#include "cli/device/device_choice.h"
#include "cli/device/element_value.h"
#include "cli/device/interfaces.h"
#include "cli/device/volume_name.h"
#include "cli/local/local_text.h"

namespace media_adapter::cli {
namespace {

namespace fs = std::filesystem;

using Items = std::vector<Candidate>;

char LowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() &&
         std::ranges::equal(text.substr(0, prefix.size()), prefix, {}, LowerCase, LowerCase);
}

bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

bool IsShown(const CLI::Option& option) { return option.nonpositional() && !option.get_group().empty(); }

// Options may stand behind a command that are not its own.
const CLI::Option* FindOption(const CLI::App* app, const std::string& name) {
  for (; app != nullptr; app = app->get_parent()) {
    if (const CLI::Option* const option = app->get_option_no_throw(name)) return option;
  }
  return nullptr;
}

const CLI::App* FindSubcommand(const CLI::App& app, const std::string& name) {
  const auto found = app.get_subcommands([&](const CLI::App* sub) { return sub->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

// Where the words lead to.
struct Place {
  Place(const CLI::App& parser, std::span<const std::string> words) : app(&parser) {
    for (const std::string& word : words) Take(word);
  }

  const CLI::App* app;                      // the innermost command so far
  const CLI::Option* isAwaiting = nullptr;  // the option whose value comes next
  const Command* command = nullptr;
  bool hasOnlyArguments = false;  // behind "--"
  std::vector<std::pair<const CLI::Option*, std::string>> values;

 private:
  void Take(const std::string& word) {
    if (isAwaiting != nullptr) {
      values.emplace_back(isAwaiting, word);
      isAwaiting = nullptr;
    } else if (!hasOnlyArguments && word == "--") {
      hasOnlyArguments = true;
    } else if (!hasOnlyArguments && word.size() > 1 && word.starts_with('-')) {
      TakeOption(word);
    } else if (const CLI::App* const sub = FindSubcommand(*app, word)) {
      app = sub;
      if (command == nullptr) command = FindCommand(word);
    }
  }

  void TakeOption(const std::string& word) {
    const size_t equals = word.find('=');
    const CLI::Option* const option = FindOption(app, word.substr(0, equals));
    if (option == nullptr || !TakesValue(*option)) return;
    if (equals == std::string::npos) {
      isAwaiting = option;
    } else {
      values.emplace_back(option, word.substr(equals + 1));
    }
  }
};

Items CommandItems(const CLI::App& app) {
  Items items;
  for (const CLI::App* const sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    items.push_back({sub->get_name(), sub->get_description()});
  }
  return items;
}

Items AllCommands() {
  Items items;
  for (const Command& command : CommandTable()) items.push_back({command.name, command.summary});
  return items;
}

Items OptionItems(const CLI::App* app) {
  Items items;
  for (; app != nullptr; app = app->get_parent()) {
    for (const CLI::Option* const option : app->get_options()) {
      if (!IsShown(*option)) continue;
      const bool isLong = !option->get_lnames().empty();
      std::string name = isLong ? "--" + option->get_lnames().front() : "-" + option->get_snames().front();
      const auto isSame = [&](const Candidate& item) { return item.text == name; };
      if (std::ranges::none_of(items, isSame)) items.push_back({std::move(name), option->get_description()});
    }
  }
  return items;
}

// A name, or the hardware address where a name does not tell which.
Items DeviceItems(const Session& session) {
  Items items;
  for (const DeviceEntry& device : session.Devices()) {
    const std::string name = DeviceName(device);
    const bool isClear = !name.empty() && MatchingDevices(session.Devices(), name).size() == 1;
    items.push_back({isClear ? name : MacText(device), AddressText(device)});
  }
  return items;
}

Items InterfaceItems() {
  Items items;
  for (const LocalInterface& interface : LocalInterfaces()) items.push_back({interface.name, interface.address});
  return items;
}

// Names of the folder that a word points into; folders end in "/".
Items DeviceNames(std::string_view folder, Session& session) {
  const VolumeName typed = TypedPath(folder);
  Items items;
  if (!typed.problem.empty() || !session.PrepareQuietly()) return items;
  for (const ListingEntry& entry : session.ListQuietly(session.Resolve(typed.bytes)).entries) {
    if (!IsDotEntry(entry)) items.push_back({ShowName(EntryName(entry)) + (IsFolder(entry) ? "/" : "")});
  }
  return items;
}

Items LocalNames(std::string_view folder, bool isHiddenShown) {
  Items items;
  std::error_code error;
  const fs::path path = LocalPath(folder.empty() ? "." : folder);
  for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
    std::error_code unknown;
    const std::string name = LocalText(entry->path().filename());
    // A name that is shown otherwise than it is written would not be safe to show while it is edited.
    if (Escape(name) != name || (name.starts_with('.') && !isHiddenShown)) continue;
    items.push_back({name + (entry->is_directory(unknown) ? "/" : "")});
  }
  return items;
}

Items ElementItems(bool isWritten) {
  Items items;
  for (const ElementRow& row : ElementTable()) {
    if (isWritten ? !row.isWritten : !row.isRead) continue;
    const bool isPlain = isWritten && row.form != ElementForm::Secret;
    items.push_back({ElementName(row) + (isPlain ? "=" : ""), std::string(FormName(row.form))});
  }
  return items;
}

Completes ValueOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  if (type == "DEVICE") return Completes::Devices;
  return type == "FILE" || type == "FOLDER" ? Completes::LocalPaths : Completes::Nothing;
}

bool IsAboutDevices(Completes kind) {
  return kind == Completes::Devices || kind == Completes::DevicePaths || kind == Completes::DeviceThenLocalPaths ||
         kind == Completes::LocalThenDevicePaths;
}

// What fits a word of this kind, and in `prefix` what of the word is a folder in front of it.
Items Find(Completes kind, const Place& place, std::string_view typed, std::string& prefix, Context& context) {
  const std::string folder(typed.substr(0, typed.find_last_of("\\/") + 1));
  const std::string_view name = typed.substr(folder.size());
  const auto fitting = [&](Items items) {
    prefix = folder;
    std::erase_if(items, [&](const Candidate& item) { return !StartsWithIgnoringCase(item.text, name); });
    return items;
  };
  const auto local = [&] { return fitting(LocalNames(folder, name.starts_with('.'))); };
  const auto onDevice = [&] { return fitting(DeviceNames(folder, context.session)); };
  Items items;
  switch (kind) {
    case Completes::Nothing:
      return {};
    case Completes::Commands:
      return AllCommands();
    case Completes::Devices:
      return DeviceItems(context.session);
    case Completes::DevicePaths:
      return onDevice();
    case Completes::LocalPaths:
      return local();
    case Completes::DeviceThenLocalPaths:
      items = onDevice();
      return items.empty() ? local() : items;
    case Completes::LocalThenDevicePaths:
      items = local();
      return items.empty() ? onDevice() : items;
    case Completes::Settings: {
      const std::string command = place.app->get_name();
      return command == "get" || command == "set" ? ElementItems(command == "set") : local();
    }
  }
  return {};
}

}  // namespace

Candidates FindCandidates(const CLI::App& parser, std::span<const std::string> words, std::string_view typed,
                          Context& context) {
  const Place place(parser, words);
  Candidates found;
  const CLI::Option* option = place.isAwaiting;
  if (option == nullptr && !place.hasOnlyArguments && typed.starts_with("--") && typed.find('=') != typed.npos) {
    option = FindOption(place.app, std::string(typed.substr(0, typed.find('='))));
    found.prefix = typed.substr(0, typed.find('=') + 1);
    typed.remove_prefix(found.prefix.size());
    if (option == nullptr || !TakesValue(*option)) return {};
  }
  std::string folder;
  const auto find = [&](Completes kind) {
    found.isAboutDevices = IsAboutDevices(kind);
    return Find(kind, place, typed, folder, context);
  };
  if (option != nullptr) {
    found.items = option->get_type_name() == "INTERFACE" ? InterfaceItems() : find(ValueOf(*option));
  } else if (!place.hasOnlyArguments && typed.starts_with('-')) {
    found.items = OptionItems(place.app);
  } else if (Items commands = CommandItems(*place.app); !commands.empty()) {
    found.items = std::move(commands);
  } else if (place.command != nullptr) {
    found.items = find(place.command->completes);
  }
  found.prefix += folder;
  typed.remove_prefix(folder.size());
  std::erase_if(found.items, [&](const Candidate& item) { return !StartsWithIgnoringCase(item.text, typed); });
  std::ranges::sort(found.items, {}, &Candidate::text);
  return found;
}

std::vector<std::string> OptionValues(const CLI::App& parser, std::span<const std::string> words, const char* option) {
  const CLI::Option* const wanted = parser.get_option_no_throw(option);
  std::vector<std::string> values;
  for (const auto& [given, value] : Place(parser, words).values) {
    if (given == wanted) values.push_back(value);
  }
  return values;
}

}  // namespace media_adapter::cli

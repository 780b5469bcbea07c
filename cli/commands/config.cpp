// The "config" commands: get, set, save and load.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands/requests.h"
#include "cli/commands/several_devices.h"
#include "cli/commands/table.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"
#include "cli/device/device_choice.h"
#include "cli/device/element_value.h"
#include "cli/local/local_text.h"
#include "cli/local/settings_file.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

std::span<const uint8_t> ImageBytes(const ConfigurationData& image) {
  return {reinterpret_cast<const uint8_t*>(&image), sizeof image};
}

std::span<const uint8_t> ImageField(const ConfigurationData& image, const ElementRow& row) {
  return ImageBytes(image).subspan(row.configOffset, row.maxSize);
}

void StoreField(ConfigurationData& image, const LoadedSetting& setting) {
  std::ranges::copy(setting.field, reinterpret_cast<uint8_t*>(&image) + setting.row->configOffset);
}

constexpr uint16_t kAddressElement = MEDIA_ADAPTER_ELEMENT(1, 0);

uint16_t ElementId(const ElementRow& row) { return MEDIA_ADAPTER_ELEMENT(row.elementClass, row.index); }

std::vector<const ElementRow*> ReadableRows() {
  std::vector<const ElementRow*> rows;
  for (const ElementRow& row : ElementTable()) {
    if (row.isRead) rows.push_back(&row);
  }
  return rows;
}

// The settings that a device told, and no others: a reply may leave elements out, and their fields in the library's
// image then hold what they held before, be it another device's.
struct ToldSettings {
  Answer answer;
  ConfigurationData image = {};
  std::vector<const ElementRow*> rows;

  bool Has(const ElementRow* row) const { return std::ranges::find(rows, row) != rows.end(); }
};

bool IsElementRefused(const Answer& answer) {
  const uint32_t status = answer.status.value_or(MEDIA_ADAPTER_OK);
  return status == MEDIA_ADAPTER_INVALID_ELEMENT_ID || status == MEDIA_ADAPTER_INVALID_ELEMENT_SIZE;
}

// Asks for the settings on top of an image full of `filler`. A device that refuses one of them is asked for each by
// itself; those that it refuses then are taken out of `rows`.
Answer ReadImage(Session& session, uint8_t filler, std::vector<const ElementRow*>& rows, ConfigurationData& image) {
  std::vector<uint16_t> ids(rows.size());
  std::ranges::transform(rows, ids.begin(), [](const ElementRow* row) { return ElementId(*row); });
  session.FillImage(filler);
  Answer answer = session.GetConfiguration(ids, image);
  if (!IsElementRefused(answer)) return answer;
  for (const uint16_t id : ids) {
    Answer single = session.GetConfiguration({&id, 1}, image);
    if (!single.IsOk() && !IsElementRefused(single)) return single;
    if (!single.IsOk()) std::erase_if(rows, [=](const ElementRow* row) { return ElementId(*row) == id; });
  }
  return {MEDIA_ADAPTER_OK, {}};
}

// A byte that holds the filler under two different fillers was not told.
ToldSettings ReadTold(Session& session, std::vector<const ElementRow*> rows) {
  constexpr uint8_t kFillers[] = {0x55, 0xAA};
  ToldSettings told;
  ConfigurationData first = {};
  told.answer = ReadImage(session, kFillers[0], rows, first);
  if (told.answer.IsOk()) told.answer = ReadImage(session, kFillers[1], rows, told.image);
  if (!told.answer.IsOk()) return told;
  for (const ElementRow* const row : rows) {
    auto* const field = reinterpret_cast<uint8_t*>(&told.image) + row->configOffset;
    const std::span<const uint8_t> before = ImageField(first, *row);
    bool isTold = false;
    for (size_t i = 0; i < row->maxSize; ++i) {
      const bool isLeft = before[i] == kFillers[0] && field[i] == kFillers[1];
      if (isLeft) field[i] = 0;
      isTold = isTold || !isLeft;
    }
    if (isTold) told.rows.push_back(row);
  }
  return told;
}

int RunGet(const Context& context, std::span<const std::string> names) {
  std::vector<const ElementRow*> rows;
  for (const std::string& name : names) {
    const ElementRow* const row = FindElementByName(name);
    if (row == nullptr || !row->isRead) {
      const char* const problem = row == nullptr ? "no such element" : "a device never tells this element";
      return context.output.Failed("config get " + Escape(name), Problem(problem), kUsage);
    }
    rows.push_back(row);
  }
  if (names.empty()) rows = ReadableRows();
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  const ToldSettings told = ReadTold(context.session, rows);
  if (!told.answer.IsOk()) return context.output.Failed("config get", told.answer);
  std::vector<Row> lines;
  ordered_json list = ordered_json::array();
  for (const ElementRow* const row : rows) {
    const std::span<const uint8_t> field = ImageField(told.image, *row);
    const std::string form(FormName(row->form));
    const bool isTold = told.Has(row);
    lines.push_back({ElementName(*row), isTold ? form : "not told", isTold ? FormatValue(*row, field) : ""});
    list.push_back(
        {{"element", ElementName(*row)}, {"form", form}, {"value", isTold ? JsonValue(*row, field) : ordered_json()}});
  }
  const Column columns[] = {{"ELEMENT"}, {"FORM"}, {"VALUE"}};
  if (context.output.isJson) {
    context.output.Json(list);
  } else {
    context.output.Table(columns, lines);
  }
  if (names.empty() || told.rows.size() == rows.size()) return kSuccess;
  for (const ElementRow* const row : rows) {
    if (!told.Has(row)) context.output.Error("config get " + ElementName(*row) + ": the device does not tell it");
  }
  return kFailure;
}

int Send(const Context& context, const char* operation, std::span<const LoadedSetting> settings, bool isForced) {
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  ConfigurationData image = {};
  std::vector<uint16_t> ids;
  for (const LoadedSetting& setting : settings) {
    StoreField(image, setting);
    ids.push_back(ElementId(*setting.row));
  }
  const bool hasAddress = std::ranges::find(ids, kAddressElement) != ids.end();
  if (hasAddress && !context.output.device.empty()) {
    return context.output.Failed(operation, Problem("several devices cannot have one address (1.0)"), kUsage);
  }
  if (hasAddress && !isForced) {
    const Answer answer = CheckNewAddress(context.session, image.element1_0);
    if (!answer.IsOk()) return context.output.Failed(operation, answer);
  }
  const Answer answer = context.session.SetConfiguration(ids, image);
  // A device that moved may have answered from its new address, which is not listened to.
  if (hasAddress && (answer.IsOk() || answer.status == MEDIA_ADAPTER_NO_RESPONSE)) context.session.ForgetSearch();
  if (!answer.IsOk()) return context.output.Failed(operation, answer);
  context.output.Note(std::to_string(ids.size()) + (ids.size() == 1 ? " setting sent" : " settings sent"));
  if (context.output.isJson) context.output.Json(AnswerJson(answer));
  return kSuccess;
}

std::optional<std::string> ReadFile(const std::string& path) {
  std::ifstream file(LocalPath(path), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // A folder opens and fails on the first read.
  return file.is_open() && !file.bad() ? std::optional(std::move(bytes)) : std::nullopt;
}

// "ELEMENT=@FILE", or "ELEMENT" alone to be asked: a secret's value never stands on a command line.
ParsedValue ReadSecret(const ElementRow& row, bool hasValue, const std::string& value) {
  if (!hasValue) {
    const std::optional<std::string> typed = AskSecret("Value of element " + ElementName(row) + ": ");
    return typed ? ParseSecret(row, *typed) : ParsedValue{{}, "is secret; give a file with it as =@FILE"};
  }
  if (!value.starts_with('@')) return {{}, "is secret; give a file with it as =@FILE, or no value to be asked"};
  const std::optional<std::string> bytes = ReadFile(value.substr(1));
  return bytes ? ParseSecret(row, *bytes) : ParsedValue{{}, "cannot read " + Escape(value.substr(1))};
}

// One argument of "config set". The problem, or "".
std::string ReadArgument(const std::string& argument, std::vector<LoadedSetting>& settings) {
  const size_t equals = std::min(argument.find('='), argument.size());
  const bool hasValue = equals < argument.size();
  const std::string value = hasValue ? argument.substr(equals + 1) : "";
  const ElementRow* const row = FindElementByName(argument.substr(0, equals));
  if (row == nullptr) return "no such element";
  if (!row->isWritten) return "cannot be written";
  if (std::ranges::any_of(settings, [=](const LoadedSetting& s) { return s.row == row; })) return "stands twice";
  ParsedValue parsed;
  if (row->form == ElementForm::Secret) {
    parsed = ReadSecret(*row, hasValue, value);
  } else if (hasValue) {
    parsed = ParseValue(*row, value);
  } else {
    parsed.problem = "has no value; give it as =VALUE";
  }
  settings.push_back({row, std::move(parsed.field)});
  return parsed.problem;
}

int RunSet(const Context& context, std::span<const std::string> arguments, bool isForced) {
  std::vector<LoadedSetting> settings;
  for (const std::string& argument : arguments) {
    if (const std::string problem = ReadArgument(argument, settings); !problem.empty()) {
      // Only the element is printed: what follows may be a secret.
      const std::string element = Escape(argument.substr(0, argument.find('=')));
      return context.output.Failed("config set " + element, Problem(problem), kUsage);
    }
  }
  return Send(context, "config set", settings, isForced);
}

int RunSave(const Context& context, std::string path) {
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  if (const std::string name = DeviceFolderName(context); !name.empty()) {
    std::error_code error;
    if (!std::filesystem::is_directory(LocalPath(path), error)) {
      return context.output.Failed("config save " + Escape(path), Problem("several devices need a folder"), kUsage);
    }
    path += "/" + name + ".json";
  }
  const std::vector<const ElementRow*> rows = ReadableRows();
  const ToldSettings told = ReadTold(context.session, rows);
  if (!told.answer.IsOk()) return context.output.Failed("config save", told.answer);
  const std::string text = WriteSettings(told.rows, ImageBytes(told.image));
  for (const ElementRow* const row : rows) {
    if (!told.Has(row)) context.output.Note("not saved, since the device does not tell it: " + ElementName(*row));
  }
  if (path == "-") {
    context.output.Line(std::string_view(text).substr(0, text.size() - 1));
    return kSuccess;
  }
  std::ofstream file(LocalPath(path), std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) return context.output.Failed("config save " + Escape(path), Problem("cannot write the file"));
  context.output.Note("saved to " + Escape(path) + ", without the secrets");
  if (context.output.isJson) context.output.Json(AnswerJson({MEDIA_ADAPTER_OK, "saved"}));
  return kSuccess;
}

int RunLoad(const Context& context, const std::string& path, bool isForced) {
  const std::string operation = "config load " + Escape(path);
  const std::optional<std::string> text = ReadFile(path);
  if (!text) return context.output.Failed(operation, Problem("cannot read the file"), kUsage);
  const LoadedSettings loaded = ReadSettings(*text);
  if (!loaded.problems.empty()) {
    for (const std::string& problem : loaded.problems) context.output.ItemFailed(operation, Problem(problem));
    return context.output.Failed(operation, Problem("nothing was sent"), kUsage);
  }
  return Send(context, operation.c_str(), loaded.settings, isForced);
}

// An argument that is given to `run` as it stands.
template <typename Run>
void DescribeFile(CLI::App& parser, const char* help, Run run, Context& context, Action& action) {
  auto file = std::make_shared<std::string>();
  parser.add_option("FILE", *file, help)->required();
  parser.callback([=, &context, &action] {
    action = [=, &context] { return ForEachDevice(context, [&] { return run(context, *file); }); };
  });
}

template <typename Run>
void DescribeElements(CLI::App& parser, CLI::Option& elements, Run run, Context& context, Action& action) {
  elements.allow_extra_args();
  parser.callback([=, &elements, &context, &action] {
    action = [=, &context, arguments = elements.reduced_results()] {
      return ForEachDevice(context, [&] { return run(context, arguments); });
    };
  });
}

std::shared_ptr<bool> AddForce(CLI::App& parser) {
  auto isForced = std::make_shared<bool>(false);
  parser.add_flag("--force", *isForced, "Set an address (1.0) that another device has, too");
  return isForced;
}

}  // namespace

void DescribeConfig(CLI::App& parser, Context& context, Action& action) {
  parser.require_subcommand(1);
  const auto add = [&](const char* name, const char* summary) {
    CLI::App* const sub = parser.add_subcommand(name, summary);
    sub->fallthrough();
    return sub;
  };
  CLI::App* const get = add("get", "Show settings");
  CLI::Option* const wanted =
      get->add_option("ELEMENT", "class.index, such as 8.0; all readable ones when none is given");
  DescribeElements(*get, *wanted->expected(0, -1), RunGet, context, action);

  CLI::App* const set = add("set", "Change settings");
  CLI::Option* const given =
      set->add_option("SETTING", "ELEMENT=VALUE; for a secret ELEMENT=@FILE, or ELEMENT to be asked");
  const auto runSet = [isForced = AddForce(*set)](const Context& c, std::span<const std::string> arguments) {
    return RunSet(c, arguments, *isForced);
  };
  DescribeElements(*set, *given->expected(1, -1)->required(), runSet, context, action);

  DescribeFile(*add("save", "Save all settings but the secrets"), "A JSON file, - for standard output", RunSave,
               context, action);
  CLI::App* const load = add("load", "Send the settings of a saved file");
  const auto runLoad = [isForced = AddForce(*load)](const Context& c, const std::string& file) {
    return RunLoad(c, file, *isForced);
  };
  DescribeFile(*load, "A file that \"config save\" wrote", runLoad, context, action);
}

}  // namespace media_adapter::cli

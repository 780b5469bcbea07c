// Commands about the device's settings: config get, set, save and load.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>

#include "cli/commands.h"
#include "cli/element_value.h"
#include "cli/settings_file.h"
#include "cli/terminal.h"
#include "cli/text.h"

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

uint16_t ElementId(const ElementRow& row) { return MEDIA_ADAPTER_ELEMENT(row.elementClass, row.index); }

std::vector<const ElementRow*> ReadableRows() {
  std::vector<const ElementRow*> rows;
  for (const ElementRow& row : ElementTable()) {
    if (row.isRead) rows.push_back(&row);
  }
  return rows;
}

Answer ReadImage(Session& session, std::span<const ElementRow* const> rows, ConfigurationData& image) {
  std::vector<uint16_t> ids;
  for (const ElementRow* const row : rows) ids.push_back(ElementId(*row));
  return session.GetConfiguration(ids, image);
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
  ConfigurationData image = {};
  if (const Answer answer = ReadImage(context.session, rows, image); !answer.IsOk()) {
    return context.output.Failed("config get", answer);
  }
  std::vector<Row> lines;
  ordered_json list = ordered_json::array();
  for (const ElementRow* const row : rows) {
    const std::span<const uint8_t> field = ImageField(image, *row);
    const std::string form(FormName(row->form));
    lines.push_back({ElementName(*row), form, FormatValue(*row, field)});
    list.push_back({{"element", ElementName(*row)}, {"form", form}, {"value", JsonValue(*row, field)}});
  }
  const Column columns[] = {{"ELEMENT"}, {"FORM"}, {"VALUE"}};
  if (context.output.isJson) {
    context.output.Json(list);
  } else {
    context.output.Table(columns, lines);
  }
  return kSuccess;
}

// Sends the settings, on top of what the device says of the others, so that the library's image stays true.
int Send(const Context& context, const char* operation, std::span<const LoadedSetting> settings) {
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  ConfigurationData image = {};
  Answer answer = ReadImage(context.session, ReadableRows(), image);
  if (!answer.IsOk()) return context.output.Failed(std::string(operation) + ", reading", answer);
  std::vector<uint16_t> ids;
  for (const LoadedSetting& setting : settings) {
    StoreField(image, setting);
    ids.push_back(ElementId(*setting.row));
  }
  answer = context.session.SetConfiguration(ids, image);
  if (!answer.IsOk()) return context.output.Failed(operation, answer);
  context.output.Note(std::to_string(ids.size()) + (ids.size() == 1 ? " setting sent" : " settings sent"));
  if (context.output.isJson) context.output.Json(AnswerJson(answer));
  return kSuccess;
}

std::optional<std::string> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
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

int RunSet(const Context& context, std::span<const std::string> arguments) {
  std::vector<LoadedSetting> settings;
  for (const std::string& argument : arguments) {
    if (const std::string problem = ReadArgument(argument, settings); !problem.empty()) {
      // Only the element is printed: what follows may be a secret.
      const std::string element = Escape(argument.substr(0, argument.find('=')));
      return context.output.Failed("config set " + element, Problem(problem), kUsage);
    }
  }
  return Send(context, "config set", settings);
}

int RunSave(const Context& context, const std::string& path) {
  if (const int code = context.session.Prepare(); code != kSuccess) return code;
  ConfigurationData image = {};
  if (const Answer answer = ReadImage(context.session, ReadableRows(), image); !answer.IsOk()) {
    return context.output.Failed("config save", answer);
  }
  const std::string text = WriteSettings(ImageBytes(image));
  if (path == "-") {
    context.output.Line(std::string_view(text).substr(0, text.size() - 1));
    return kSuccess;
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) return context.output.Failed("config save " + Escape(path), Problem("cannot write the file"));
  context.output.Note("saved to " + Escape(path) + ", without the secrets");
  if (context.output.isJson) context.output.Json(AnswerJson({MEDIA_ADAPTER_OK, "saved"}));
  return kSuccess;
}

int RunLoad(const Context& context, const std::string& path) {
  const std::string operation = "config load " + Escape(path);
  const std::optional<std::string> text = ReadFile(path);
  if (!text) return context.output.Failed(operation, Problem("cannot read the file"), kUsage);
  const LoadedSettings loaded = ReadSettings(*text);
  if (!loaded.problems.empty()) {
    for (const std::string& problem : loaded.problems) context.output.ItemFailed(operation, Problem(problem));
    return context.output.Failed(operation, Problem("nothing was sent"), kUsage);
  }
  return Send(context, "config load", loaded.settings);
}

void DescribeFile(CLI::App& parser, const char* help, int (*run)(const Context&, const std::string&), Context& context,
                  Action& action) {
  auto file = std::make_shared<std::string>();
  parser.add_option("FILE", *file, help)->required();
  parser.callback([=, &context, &action] { action = [=, &context] { return run(context, *file); }; });
}

void DescribeElements(CLI::App& parser, CLI::Option& elements, int (*run)(const Context&, std::span<const std::string>),
                      Context& context, Action& action) {
  elements.allow_extra_args();
  parser.callback([=, &elements, &context, &action] {
    action = [=, &context, arguments = elements.reduced_results()] { return run(context, arguments); };
  });
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
  DescribeElements(*set, *given->expected(1, -1)->required(), RunSet, context, action);

  DescribeFile(*add("save", "Save all settings but the secrets"), "A JSON file, - for standard output", RunSave,
               context, action);
  DescribeFile(*add("load", "Send the settings of a saved file"), "A file that \"config save\" wrote", RunLoad, context,
               action);
}

}  // namespace media_adapter::cli

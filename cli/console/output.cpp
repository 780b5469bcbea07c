#include "cli/console/output.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "api/media_adapter.h"
#include "cli/console/terminal.h"
#include "cli/console/text.h"

namespace media_adapter::cli {
namespace {

using nlohmann::ordered_json;

std::string Describe(const Answer& answer) {
  if (!answer.status) return answer.message + (answer.detail.empty() ? "" : ": " + answer.detail);
  return answer.message + " (status " + std::to_string(*answer.status) + ")" +
         (answer.detail.empty() ? "" : ": " + answer.detail);
}

std::string_view Hint(const Answer& answer) {
  if (answer.status == MEDIA_ADAPTER_INVALID_PASSWORD) {
    return "give the device's password with --password-file FILE, or type it with --ask-password";
  }
  return {};
}

std::string AlignedLine(std::span<const Column> columns, const Row& row, std::span<const size_t> widths) {
  std::string line;
  for (size_t i = 0; i < columns.size(); ++i) {
    const std::string padding(widths[i] - Columns(row[i]), ' ');
    if (i > 0) line += "  ";
    line += columns[i].isRightAligned ? padding + row[i] : row[i] + padding;
  }
  return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

void PrintAligned(std::span<const Column> columns, std::span<const Row> rows) {
  Row titles;
  std::vector<size_t> widths;
  for (size_t i = 0; i < columns.size(); ++i) {
    titles.push_back(columns[i].title);
    widths.push_back(Columns(columns[i].title));
    for (const Row& row : rows) widths[i] = std::max(widths[i], Columns(row[i]));
  }
  const bool hasTitles = std::ranges::any_of(titles, [](const std::string& title) { return !title.empty(); });
  if (hasTitles) Print(stdout, AlignedLine(columns, titles, widths));
  for (const Row& row : rows) Print(stdout, AlignedLine(columns, row, widths));
}

}  // namespace

Answer Problem(std::string message) { return {std::nullopt, std::move(message)}; }

ordered_json AnswerJson(const Answer& answer) {
  ordered_json json = {{"ok", answer.IsOk()},
                       {"status", answer.status ? ordered_json(*answer.status) : ordered_json()},
                       {"message", answer.message}};
  if (!answer.detail.empty()) json["detail"] = answer.detail;
  return json;
}

void Output::Table(std::span<const Column> columns, std::span<const Row> rows) const {
  if (!device.empty()) return TableOfDevice(columns, rows);
  PrintTable(columns, rows);
}

void Output::TableOfDevice(std::span<const Column> columns, std::span<const Row> rows) const {
  std::vector<Column> allColumns = {{"DEVICE"}};
  allColumns.insert(allColumns.end(), columns.begin(), columns.end());
  std::vector<Row> allRows(rows.begin(), rows.end());
  for (Row& row : allRows) row.insert(row.begin(), device);
  PrintTable(allColumns, allRows);
}

void Output::PrintTable(std::span<const Column> columns, std::span<const Row> rows) const {
  if (IsOutputTerminal()) return PrintAligned(columns, rows);
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) Print(stdout, (i > 0 ? "\t" : "") + row[i]);
    Print(stdout, "\n");
  }
}

void Output::Json(const ordered_json& value) const {
  Line(device.empty() ? value.dump() : ordered_json{{"device", device}, {"result", value}}.dump());
}

void Output::Line(std::string_view text) const {
  Print(stdout, std::string(text) + "\n");
  std::fflush(stdout);
}

void Output::Note(std::string_view text) const {
  if (!IsErrorTerminal()) return;
  Fleeting("");
  Print(stderr, std::string(text) + "\n");
}

void Output::Fleeting(std::string_view text) const {
  if (!IsErrorTerminal()) return;
  if (fleetingLines_ > 1) Print(stderr, "\033[" + std::to_string(fleetingLines_ - 1) + "A");
  if (fleetingLines_ > 0) Print(stderr, "\r\033[J");
  Print(stderr, text);
  fleetingLines_ = text.empty() ? 0 : 1 + static_cast<size_t>(std::ranges::count(text, '\n'));
}

void Output::Error(std::string_view text) const {
  std::fflush(stdout);
  Fleeting("");
  Print(stderr, "media-adapter: " + place + (device.empty() ? "" : device + ": ") + std::string(text) + "\n");
}

void Output::ItemFailed(std::string_view operation, const Answer& answer) const {
  Error(std::string(operation) + ": " + Describe(answer));
  if (const std::string_view hint = Hint(answer); !hint.empty()) Error(hint);
}

int Output::Failed(std::string_view operation, const Answer& answer, int code) const {
  ItemFailed(operation, answer);
  if (isJson) Json(AnswerJson(answer));
  return code;
}

bool Output::Flush() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }

}  // namespace media_adapter::cli

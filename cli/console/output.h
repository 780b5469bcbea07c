// Everything that the tool prints. Data goes to standard output: tables with aligned columns on a terminal, the same
// rows separated by tabs and without a header line elsewhere, or one line of JSON a command. Messages go to standard
// error, notes among them only when that is a terminal. Texts are printed as they are: what comes from a device is
// escaped before it gets here.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace media_adapter::cli {

// Exit codes of the tool, and results of its commands.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;  // a device or the library refused, or something failed on the way
inline constexpr int kUsage = 2;    // the command or its input is wrong; nothing was sent

// How one operation ended: with a status of the library and its text, or with a problem that the tool itself found.
struct Answer {
  std::optional<uint32_t> status;
  std::string message;
  std::string detail{};  // what the status means here and what can be done, or ""

  bool IsOk() const { return status == 0u; }
};

Answer Problem(std::string message);

struct Column {
  std::string title;
  bool isRightAligned = false;
};

using Row = std::vector<std::string>;

class Output {
 public:
  // Set once the command line is known.
  bool isJson = false;
  // In front of every message of a script: "line 3: ".
  std::string place;
  // While a command works on several devices, the one that it works on: in front of messages, a column of tables, and
  // around JSON as {"device": ..., "result": ...}. Empty otherwise.
  std::string device;

  void Table(std::span<const Column> columns, std::span<const Row> rows) const;
  void Json(const nlohmann::ordered_json& value) const;
  void Line(std::string_view text) const;

  // A note for the person at the terminal.
  void Note(std::string_view text) const;
  // Text on the last lines of the terminal that the next Fleeting or message replaces; "" only removes it.
  void Fleeting(std::string_view text) const;
  void Error(std::string_view text) const;

  // Prints why `operation`, a command and what it worked on, failed, and its JSON object when JSON is asked for.
  // Returns `code`.
  int Failed(std::string_view operation, const Answer& answer, int code = kFailure) const;
  // As above, without JSON: for one of several items, whose results are printed together.
  void ItemFailed(std::string_view operation, const Answer& answer) const;

  // False when standard output could not be written.
  static bool Flush();

 private:
  void TableOfDevice(std::span<const Column> columns, std::span<const Row> rows) const;
  void PrintTable(std::span<const Column> columns, std::span<const Row> rows) const;

  mutable size_t fleetingLines_ = 0;
};

// {"ok": ..., "status": ..., "message": ...}, and "detail" when there is one.
nlohmann::ordered_json AnswerJson(const Answer& answer);

}  // namespace media_adapter::cli

#include "item/value_check.h"

#include <algorithm>
#include <climits>
#include <cstdint>

#include "kelv_string.h"
#include "text/number_text.h"
#include "text/wording.h"

namespace {

constexpr uint64_t kMostModule = 0xFFFF;    // marks a free entry of the heartbeat table
constexpr uint64_t kMostCode = 0xFFFFFFFE;  // the items use the next number for a missing code

// The error codes of SendErrRpt, each with the additional parameter that it needs.
struct CodeRow {
  uint64_t code;
  const char* text;
  const char* needs;
};
constexpr CodeRow kCodes[] = {{0xF0000203, "0xF0000203", "ResId"},
                              {0xF0000204, "0xF0000204", "ResId"},
                              {0xF000020F, "0xF000020F", "ProcessName"}};

// The position of the parameter that the item uses for this name.
std::optional<size_t> place_of(const std::vector<Param>& params, std::string_view name) {
  const auto found = std::find_if(params.begin(), params.end(),
                                  [&](const Param& param) { return param.name == name; });
  if (found == params.end()) return std::nullopt;
  return static_cast<size_t>(found - params.begin());
}

// The notation and the range of a number.
enum class Digits { kDecimal, kDecimalOrHexadecimal };
struct NumberForm {
  Digits digits;
  uint64_t least;
  uint64_t most;
};

bool is_number(const std::string& text, const NumberForm& form) {
  const bool hexadecimal = form.digits == Digits::kDecimalOrHexadecimal &&
                           (text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0);
  const std::string digits = hexadecimal ? text.substr(2) : text;
  const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
  if (digits.empty() || digits.find_first_not_of(allowed) != std::string::npos) return false;
  const uint64_t number = kelv_str_tou64(text.c_str());
  return number >= form.least && number <= form.most;
}

std::string described(const NumberForm& form) {
  return "a whole number from " + std::to_string(form.least) + " to " + std::to_string(form.most) +
         (form.digits == Digits::kDecimal ? ", decimal" : ", decimal or after 0x");
}

// The number of this parameter of a report; nothing, with a mistake, if it is not a number up to
// `most`. Nothing also if there is no such parameter, or if it has a placeholder.
std::optional<uint64_t> report_number(const std::vector<Param>& params, const char* name,
                                      uint64_t most, ParamMistakes& mistakes) {
  const NumberForm form{Digits::kDecimalOrHexadecimal, 0, most};
  const std::optional<size_t> place = place_of(params, name);
  if (!place) return std::nullopt;
  const std::string& value = params[*place].value;
  if (value.find('{') != std::string::npos) return std::nullopt;
  if (is_number(value, form)) return kelv_str_tou64(value.c_str());
  mistakes.push_back(
      {place, std::string(name) + " is " + in_quotes(value) + ", expected " + described(form)});
  return std::nullopt;
}

void check_code(const std::vector<Param>& params, uint64_t code, ParamMistakes& mistakes) {
  std::vector<std::string_view> known;
  for (const CodeRow& row : kCodes) {
    known.emplace_back(row.text);
    if (row.code != code) continue;
    if (place_of(params, row.needs)) return;
    mistakes.push_back({std::nullopt, "no parameter " + in_quotes(row.needs) +
                                          " for SendErrRpt, expected it with ErrCode " + row.text});
    return;
  }
  const std::optional<size_t> place = place_of(params, "ErrCode");
  mistakes.push_back({place, "ErrCode " + params[*place].value +
                                 " is not supported by SendErrRpt, expected one of " +
                                 joined(known)});
}

void check_report(const ItemRow& item, const std::vector<Param>& params, ParamMistakes& mistakes) {
  const std::optional<uint64_t> code = report_number(params, "ErrCode", kMostCode, mistakes);
  if (std::string_view(item.name) == "SendErrRptExtend") return;
  if (code) check_code(params, *code, mistakes);
  report_number(params, "ProcessMoudleId", kMostModule, mistakes);
}

using Fault = ValueFault;
using Check = std::optional<Fault> (*)(const std::string& value);

std::optional<Fault> check_number(const std::string& value, uint64_t least, uint64_t most) {
  if (is_number(value, {Digits::kDecimal, least, most})) return std::nullopt;
  return Fault{"is " + in_quotes(value) + ", expected " +
               described({Digits::kDecimal, least, most})};
}

// Only the first line of a command line is compared, its line break included.
std::optional<Fault> check_line_break(const std::string& value, const char* may_follow) {
  const size_t at = value.find('\n');
  if (at == std::string::npos) return std::nullopt;
  const bool is_last = value.find_first_not_of(may_follow, at + 1) == std::string::npos;
  return Fault{
      is_last ? "ends with a line break, expected none: command lines rarely have one"
              : "has more text after a line break, expected one line: no command line can match it",
      is_last};
}

std::optional<Fault> check_literal(const std::string& value) {
  if (value.find('*') != std::string::npos) {
    return Fault{
        "has a *, which this item compares literally, expected a FuzzyMatch item for patterns",
        true};
  }
  return check_line_break(value, "");
}

std::optional<Fault> check_exact(const std::string& value) {
  if (value.empty()) {
    return Fault{"is empty, expected a command line: no process matches an empty one"};
  }
  return check_literal(value);
}

std::optional<Fault> check_prefix(const std::string& value) {
  if (value.empty()) {
    return Fault{
        "is empty, expected the beginning of a command line: every process matches an "
        "empty one",
        true};
  }
  return check_literal(value);
}

std::optional<Fault> check_pattern(const std::string& value) {
  if (value.empty()) return Fault{"is empty, expected a pattern: nothing matches an empty one"};
  return check_line_break(value, "*");
}

// The item reads the name from the status file of the process, up to the first blank. The kernel
// writes a backslash there as two characters.
std::optional<Fault> check_short_name(const std::string& value) {
  constexpr size_t kLongest = 15;
  const size_t written_as = value.find('\\') == std::string::npos ? 1 : 2;
  if (value.empty()) return Fault{"is empty, expected the short name of a process"};
  const size_t blank = value.find_first_of(" \t\n\v\f\r");
  if (blank != std::string::npos) {
    return Fault{"has a blank, expected " + in_quotes(value.substr(0, blank)) +
                 ": the item compares the name up to its first blank"};
  }
  if (value.size() <= kLongest * written_as) return std::nullopt;
  return Fault{"has " + std::to_string(value.size()) +
               " bytes, expected at most 15: the kernel cuts the name to " +
               in_quotes(value.substr(0, kLongest))};
}

std::optional<Fault> check_module(const std::string& value) {
  return check_number(value, 0, kMostModule - 1);
}

std::optional<Fault> check_directory(const std::string& value) {
  if (value.empty()) return Fault{"is empty, expected a directory"};
  return std::nullopt;
}

std::optional<Fault> check_seconds(const std::string& value) {
  return check_number(value, 1, 240);
}

std::optional<Fault> check_command(const std::string& value) {
  if (value.empty()) return Fault{"is empty, expected a shell command", true};
  return std::nullopt;
}

std::optional<Fault> check_key_words(const std::string& value) {
  constexpr size_t kMostCompared = 31;
  if (value.size() <= kMostCompared) return std::nullopt;
  return Fault{"has " + std::to_string(value.size()) + " bytes, expected at most " +
               std::to_string(kMostCompared) + ": the item reads no more"};
}

std::optional<Fault> check_thread(const std::string& value) {
  return check_number(value, 1, INT_MAX);
}

constexpr struct {
  ParamRow::Value kind;
  Check check;
} kChecks[] = {
    {ParamRow::Value::kExact, check_exact},        {ParamRow::Value::kPrefix, check_prefix},
    {ParamRow::Value::kPattern, check_pattern},    {ParamRow::Value::kShortName, check_short_name},
    {ParamRow::Value::kModule, check_module},      {ParamRow::Value::kDirectory, check_directory},
    {ParamRow::Value::kSeconds, check_seconds},    {ParamRow::Value::kCommand, check_command},
    {ParamRow::Value::kKeyWords, check_key_words}, {ParamRow::Value::kThread, check_thread}};

}  // namespace

std::optional<ValueFault> check_value(ParamRow::Value kind, const std::string& value) {
  for (const auto& row : kChecks) {
    if (row.kind == kind) return row.check(value);
  }
  return std::nullopt;
}

bool sends_report(const ItemRow& item) {
  const std::string_view name = item.name;
  return name == "SendErrRpt" || name == "SendErrRptExtend";
}

bool asks_for_recovery(const ItemRow& item) {
  const std::string_view name = item.name;
  return name == "CheckProcessStatusIsDForAppData" || name == "RebootAppData";
}

ParamMistakes check_values(const ItemRow& item, const std::vector<Param>& params) {
  const bool by_position = item.params->lookup == ParamList::Lookup::kByPosition;
  ParamMistakes mistakes;
  for (size_t i = 0; i < item.params->count; ++i) {
    const ParamRow& row = item.params->rows[i];
    const std::optional<size_t> place = by_position ? i : place_of(params, row.name);
    if (!place || *place >= params.size()) continue;
    const std::optional<Fault> fault = check_value(row.value, params[*place].value);
    if (!fault) continue;
    mistakes.push_back({place, params[*place].name + ' ' + fault->text, fault->is_warning});
  }
  if (sends_report(item)) check_report(item, params, mistakes);
  return mistakes;
}

std::optional<std::string> check_period(const ItemRow& item, const std::vector<Param>& params,
                                        double seconds) {
  const double interval = interval_seconds(item, params);
  if (seconds > interval) return std::nullopt;
  return "is " + number_text(seconds) + ", expected more than " + number_text(interval) +
         " s: each call of " + item.name + " measures for that long";
}

#include "item/value_check.h"

#include <algorithm>
#include <cstdint>

#include "kelv_string.h"
#include "text/wording.h"

namespace {

using Mistakes = std::vector<ParamMistake>;

constexpr uint64_t kMostModule = 0xFFFF;    // in the heartbeat table the mark of a free entry
constexpr uint64_t kMostCode = 0xFFFFFFFE;  // one more is how the items call a missing code

// The error codes of SendErrRpt, each with the parameter that it needs beyond those of all.
struct CodeRow {
  uint64_t code;
  const char* text;
  const char* needs;
};
constexpr CodeRow kCodes[] = {{0xF0000203, "0xF0000203", "ResId"},
                              {0xF0000204, "0xF0000204", "ResId"},
                              {0xF000020F, "0xF000020F", "ProcessName"}};

// The place of the parameter that the item would take for this name.
std::optional<size_t> place_of(const std::vector<Param>& params, std::string_view name) {
  const auto found = std::find_if(params.begin(), params.end(),
                                  [&](const Param& param) { return param.name == name; });
  if (found == params.end()) return std::nullopt;
  return static_cast<size_t>(found - params.begin());
}

// How the item reads a number.
enum class Digits { kDecimal, kDecimalOrHexadecimal };

bool is_number(const std::string& text, Digits digits) {
  const bool hexadecimal = digits == Digits::kDecimalOrHexadecimal &&
                           (text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0);
  const std::string number = hexadecimal ? text.substr(2) : text;
  const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
  return !number.empty() && number.find_first_not_of(allowed) == std::string::npos;
}

// The number that the value will be; nothing, with a mistake, if it is none up to `most`. Nothing
// either if there is no such parameter, or one that has a placeholder.
std::optional<uint64_t> literal_number(const std::vector<Param>& params, const char* name,
                                       Digits digits, uint64_t most, Mistakes& mistakes) {
  const std::optional<size_t> place = place_of(params, name);
  if (!place) return std::nullopt;
  const std::string& value = params[*place].value;
  if (value.find('{') != std::string::npos) return std::nullopt;
  if (is_number(value, digits) && kelv_str_tou64(value.c_str()) <= most) {
    return kelv_str_tou64(value.c_str());
  }
  mistakes.push_back(
      {place, std::string(name) + " is " + in_quotes(value) + ", expected a number from 0 to " +
                  std::to_string(most) +
                  (digits == Digits::kDecimal ? ", decimal" : ", decimal or after 0x")});
  return std::nullopt;
}

void check_code(const std::vector<Param>& params, uint64_t code, Mistakes& mistakes) {
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

}  // namespace

bool sends_report(const ItemRow& item) {
  const std::string_view name = item.name;
  return name == "SendErrRpt" || name == "SendErrRptExtend";
}

std::vector<ParamMistake> check_values(const ItemRow& item, const std::vector<Param>& params) {
  constexpr char kModule[] = "ProcessMoudleId";
  const std::string_view name = item.name;
  Mistakes mistakes;
  if (name == "ProcessHeartBeat") {
    literal_number(params, kModule, Digits::kDecimal, kMostModule - 1, mistakes);
  }
  if (!sends_report(item)) return mistakes;
  const std::optional<uint64_t> code =
      literal_number(params, "ErrCode", Digits::kDecimalOrHexadecimal, kMostCode, mistakes);
  if (name == "SendErrRptExtend") return mistakes;
  if (code) check_code(params, *code, mistakes);
  literal_number(params, kModule, Digits::kDecimalOrHexadecimal, kMostModule, mistakes);
  return mistakes;
}

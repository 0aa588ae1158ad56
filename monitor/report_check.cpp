#include "report_check.h"

#include <algorithm>
#include <cstdint>

#include "kelv_string.h"
#include "wording.h"

namespace {

using Mistakes = std::vector<ParamMistake>;

constexpr uint64_t kMostModule = 0xFFFF;
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

bool is_number(const std::string& text) {
  const bool hexadecimal = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
  const std::string digits = hexadecimal ? text.substr(2) : text;
  const char* const allowed = hexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
  return !digits.empty() && digits.find_first_not_of(allowed) == std::string::npos;
}

// The number that the value will be; nothing, with a mistake, if it is none up to `most`. Nothing
// either if there is no such parameter, or one that has a placeholder.
std::optional<uint64_t> literal_number(const std::vector<Param>& params, const char* name,
                                       uint64_t most, Mistakes& mistakes) {
  const std::optional<size_t> place = place_of(params, name);
  if (!place) return std::nullopt;
  const std::string& value = params[*place].value;
  if (value.find('{') != std::string::npos) return std::nullopt;
  if (is_number(value) && kelv_str_tou64(value.c_str()) <= most) {
    return kelv_str_tou64(value.c_str());
  }
  mistakes.push_back({place, std::string(name) + " is " + in_quotes(value) +
                                 ", expected a number from 0 to " + std::to_string(most) +
                                 ", decimal or after 0x"});
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

std::vector<ParamMistake> check_report(const ItemRow& item, const std::vector<Param>& params) {
  Mistakes mistakes;
  const std::optional<uint64_t> code = literal_number(params, "ErrCode", kMostCode, mistakes);
  if (item.name == std::string_view("SendErrRptExtend")) return mistakes;
  if (code) check_code(params, *code, mistakes);
  literal_number(params, "ProcessMoudleId", kMostModule, mistakes);
  return mistakes;
}

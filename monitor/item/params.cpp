#include "item/params.h"

#include <algorithm>
#include <cstdlib>

#include "text/wording.h"

namespace {

void check_text(const char* field, const std::string& text, size_t field_size,
                std::vector<TextMistake>& mistakes) {
  if (text.size() < field_size) return;
  mistakes.push_back({field, std::string("parameter ") + field + " has " +
                                 std::to_string(text.size()) + " bytes, expected at most " +
                                 std::to_string(field_size - 1)});
}

std::string missing(const ItemRow& item, const ParamRow& row) {
  const std::string place = item.params->lookup == ParamList::Lookup::kByPosition
                                ? " as number " + std::to_string(&row - item.params->rows + 1)
                                : "";
  return std::string("no parameter \"") + row.name + "\" for " + item.name + ", expected it" +
         place;
}

std::string superfluous(const ItemRow& item, const std::string& which) {
  const size_t takes = item.params->count;
  return "unexpected parameter " + which + ", expected " +
         (takes == 0 ? "none" : "at most " + std::to_string(takes)) + " for " + item.name;
}

void check_positions(const ItemRow& item, const std::vector<Param>& params,
                     ParamMistakes& mistakes) {
  const ParamList& list = *item.params;
  for (size_t i = 0; i < std::min(params.size(), list.count); ++i) {
    const ParamRow& row = list.rows[i];
    if (row.naming == ParamRow::Name::kFixed && params[i].name != row.name) {
      mistakes.push_back({i, "parameter " + std::to_string(i + 1) + " of " + item.name +
                                 " is named " + in_quotes(params[i].name) + ", expected \"" +
                                 row.name + "\""});
    }
  }
  for (size_t i = params.size(); i < list.count; ++i) {
    if (list.rows[i].presence == ParamRow::Presence::kRequired) {
      mistakes.push_back({std::nullopt, missing(item, list.rows[i])});
    }
  }
  for (size_t i = list.count; i < params.size(); ++i) {
    if (list.further == ParamList::Further::kRefused) {
      mistakes.push_back({i, superfluous(item, std::to_string(i + 1))});
    }
  }
}

bool has(const std::vector<Param>& params, std::string_view name) {
  return std::any_of(params.begin(), params.end(),
                     [&](const Param& param) { return param.name == name; });
}

void check_unknown_name(const ItemRow& item, const Param& param, size_t index,
                        ParamMistakes& mistakes) {
  std::vector<std::string_view> names;
  for (const ParamRow& row : *item.params) names.emplace_back(row.name);
  if (std::find(names.begin(), names.end(), param.name) == names.end()) {
    mistakes.push_back(
        {index, superfluous(item, in_quotes(param.name)) + did_you_mean(param.name, names)});
  }
}

void check_names(const ItemRow& item, const std::vector<Param>& params, ParamMistakes& mistakes) {
  for (const ParamRow& row : *item.params) {
    if (row.presence == ParamRow::Presence::kRequired && !has(params, row.name)) {
      mistakes.push_back({std::nullopt, missing(item, row)});
    }
  }
  std::vector<Param> before;
  for (size_t i = 0; i < params.size(); ++i) {
    if (params[i].name.empty()) continue;  // reported separately
    if (has(before, params[i].name)) {
      mistakes.push_back(
          {i, "duplicate parameter " + in_quotes(params[i].name) + ", expected each name once"});
    }
    before.push_back(params[i]);
    if (item.params->further == ParamList::Further::kRefused) {
      check_unknown_name(item, params[i], i, mistakes);
    }
  }
}

}  // namespace

std::vector<TextMistake> check_texts(const Param& param) {
  std::vector<TextMistake> mistakes;
  if (param.name.empty()) {
    mistakes.push_back({"name", "parameter name is empty, expected a name"});
  }
  check_text("name", param.name, FI_PARAM_NAME_LEN, mistakes);
  check_text("value", param.value, FI_PARAM_VALUE_LEN, mistakes);
  return mistakes;
}

ParamMistakes check_list(const ItemRow& item, const std::vector<Param>& params) {
  ParamMistakes mistakes;
  if (item.params->lookup == ParamList::Lookup::kByPosition) {
    check_positions(item, params, mistakes);
  } else {
    check_names(item, params, mistakes);
  }
  return mistakes;
}

std::string name_at(const ItemRow& item, size_t index) {
  if (index < item.params->count) return item.params->rows[index].name;
  return "Param" + std::to_string(index + 1);
}

std::vector<FI_PARAM_S> to_records(const std::vector<Param>& params) {
  std::vector<FI_PARAM_S> records(params.size());  // zeros, so every text ends with a NUL
  for (size_t i = 0; i < params.size(); ++i) {
    params[i].name.copy(records[i].name, FI_PARAM_NAME_LEN - 1);
    params[i].value.copy(records[i].value, FI_PARAM_VALUE_LEN - 1);
  }
  return records;
}

double interval_seconds(const ItemRow& item, const std::vector<Param>& params) {
  constexpr double kHalfSecond = 0.5, kLongest = 240.0;  // the items' limits
  if (item.interval == Interval::kNone) return 0.0;
  if (item.interval == Interval::kHalfSecond || params.size() < 2) return kHalfSecond;
  const long seconds = std::strtol(params[1].value.c_str(), nullptr, 10);
  return std::clamp(static_cast<double>(seconds), kHalfSecond, kLongest);
}

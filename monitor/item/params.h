// Checks the parameters of one item instance with the item table and converts them to records.
#ifndef MONITOR_PARAMS_H
#define MONITOR_PARAMS_H

#include <optional>
#include <string>
#include <vector>

#include "item/item_table.h"
#include "mirt_interface.h"

struct Param {
  std::string name;
  std::string value;
};

// A mistake in a list of parameters; no index if it concerns no single parameter.
struct ParamMistake {
  std::optional<size_t> index;
  std::string text;         // what was found, what was expected
  bool is_warning = false;  // it works, but probably not as intended
};
using ParamMistakes = std::vector<ParamMistake>;

// A mistake in one parameter's "name" or "value".
struct TextMistake {
  const char* field;
  std::string text;
};

// Finds texts that are too long for their record.
std::vector<TextMistake> check_texts(const Param& param);

// Finds the reasons for which the item would refuse the list, independent of the values.
ParamMistakes check_list(const ItemRow& item, const std::vector<Param>& params);

// The name that the item expects at this position, or a generated name.
std::string name_at(const ItemRow& item, size_t index);

// The records for the item, in the same order. The parameters must have passed check_texts().
std::vector<FI_PARAM_S> to_records(const std::vector<Param>& params);

// The seconds for which a call of the item sleeps to measure.
double interval_seconds(const ItemRow& item, const std::vector<Param>& params);

#endif

// The parameters of one item instance: checked against the item table, then turned into records.
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

// What is wrong with a list of parameters; without an index no single one is to blame.
struct ParamMistake {
  std::optional<size_t> index;
  std::string text;         // what was found, what was expected
  bool is_warning = false;  // it works, but hardly as it was meant
};

// What is wrong with one parameter's "name" or "value".
struct TextMistake {
  const char* field;
  std::string text;
};

// What would cut the parameter short in its record.
std::vector<TextMistake> check_texts(const Param& param);

// Everything for which the item would refuse the list, whatever the values.
std::vector<ParamMistake> check_list(const ItemRow& item, const std::vector<Param>& params);

// The name that the item expects at this place, or a name of the place's own.
std::string name_at(const ItemRow& item, size_t index);

// The records to pass, in the same order. The parameters must have passed check_texts().
std::vector<FI_PARAM_S> to_records(const std::vector<Param>& params);

// Seconds that a call of the item takes by intent, because it measures over an interval inside.
double interval_seconds(const ItemRow& item, const std::vector<Param>& params);

#endif

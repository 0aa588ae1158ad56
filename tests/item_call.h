// The records of one call of an item.
#ifndef ITEM_CALL_H
#define ITEM_CALL_H

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "mirt_interface.h"

using Item = float (*)(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result);

// The items that return int, with the same interface.
template <int (*kItem)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*)>
float as_float(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) {
  return static_cast<float>(kItem(argc, argv, context, result));
}

inline FI_PARAM_S parameter(const std::string& name, const std::string& value) {
  FI_PARAM_S record{};
  name.copy(record.name, sizeof record.name - 1);
  value.copy(record.value, sizeof record.value - 1);
  return record;
}

// Converts "A=1;B=;C=x y" to parameters.
inline std::vector<FI_PARAM_S> params(const std::string& text) {
  std::vector<FI_PARAM_S> records;
  std::istringstream pairs(text);
  for (std::string pair; std::getline(pairs, pair, ';');) {
    const size_t equals = pair.find('=');
    records.push_back(parameter(pair.substr(0, equals), pair.substr(equals + 1)));
  }
  return records;
}

// Filled with marks, so that a test sees which fields an item wrote.
struct ItemCall {
  explicit ItemCall(std::vector<FI_PARAM_S> parameters) : argv(std::move(parameters)) {
    context.steppointer = 4321;
    result.result = 77;
    strcpy(result.reason, "as it was");
    result.pid = -5;
    result.hangflowid = 99;
  }
  float run(Item item) {
    return item(static_cast<int>(argv.size()), argv.data(), &context, &result);
  }
  // A copy of the overlay, because its fields are not aligned in the context.
  template <typename Overlay>
  Overlay overlay() const {
    Overlay copy;
    memcpy(&copy, context.contextbuff, sizeof copy);
    return copy;
  }

  std::vector<FI_PARAM_S> argv;
  FI_CONTEXT_S context{};
  FI_RESULT_S result{};
};

#endif

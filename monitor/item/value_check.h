// Checks before the first call whether the values of parameters make sense for their item.
#ifndef MONITOR_VALUE_CHECK_H
#define MONITOR_VALUE_CHECK_H

#include <vector>

#include "item/params.h"

// True if the item sends an error report.
bool sends_report(const ItemRow& item);

// True if the item asks whether the data plane may be recovered.
bool asks_for_recovery(const ItemRow& item);

// What is wrong with one value.
struct ValueFault {
  std::string text;  // "is empty, expected ...": what was found, what was expected
  bool is_warning = false;
};

// The fault of a value of this kind; nothing if it is usable.
std::optional<ValueFault> check_value(ParamRow::Value kind, const std::string& value);

// Finds values that the item would refuse, misunderstand, or silently not measure: an unknown error
// code, a module id that is not a 16-bit number, a name that no process can have. Values of a
// report with a placeholder are not checked, because they are known only when it is sent.
ParamMistakes check_values(const ItemRow& item, const std::vector<Param>& params);

// A warning if a call of the item takes at least the period of `seconds`.
std::optional<std::string> check_period(const ItemRow& item, const std::vector<Param>& params,
                                        double seconds);

#endif

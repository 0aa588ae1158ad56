// Whether a configuration's values make sense to their item, checked before it is ever called.
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

// Nothing if a value of this kind can be so.
std::optional<ValueFault> check_value(ParamRow::Value kind, const std::string& value);

// What would make the item refuse its parameters, take them for others than they seem to be, or
// measure nothing without a word: an error code that it does not know, a module id that is no
// number of 16 bits, a name that no process can have. In a report, a value with a placeholder is
// known only when it is sent, and passes.
ParamMistakes check_values(const ItemRow& item, const std::vector<Param>& params);

// A warning if the item is called more often than its calls can follow each other: `seconds` is the
// time from call to call.
std::optional<std::string> check_period(const ItemRow& item, const std::vector<Param>& params,
                                        double seconds);

#endif

// Whether a configuration's values make sense to their item, checked before it is ever called.
#ifndef MONITOR_VALUE_CHECK_H
#define MONITOR_VALUE_CHECK_H

#include <vector>

#include "item/params.h"

// True if the item sends an error report.
bool sends_report(const ItemRow& item);

// What would make the item refuse its parameters, or take them for others than they seem to be: an
// error code that it does not know, a module id that is no number of 16 bits. A value with a
// placeholder is known only when it is sent, and passes.
std::vector<ParamMistake> check_values(const ItemRow& item, const std::vector<Param>& params);

#endif

// Whether the report of an alarm can be sent at all, checked before there is any alarm.
#ifndef MONITOR_REPORT_CHECK_H
#define MONITOR_REPORT_CHECK_H

#include <vector>

#include "params.h"

// True if the item sends an error report.
bool sends_report(const ItemRow& item);

// What would make that item refuse its parameters when the alarm is raised. A value with a
// placeholder is known only then and passes.
std::vector<ParamMistake> check_report(const ItemRow& item, const std::vector<Param>& params);

#endif

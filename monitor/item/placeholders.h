// {value}, {pid}, {flowid} and {instance} in the parameters of an alarm's report.
#ifndef MONITOR_PLACEHOLDERS_H
#define MONITOR_PLACEHOLDERS_H

#include <string>
#include <vector>

#include "item/item_table.h"

// The values of the placeholders when an alarm is raised.
struct PlaceholderTexts {
  std::string value, pid, flow_id, instance;
};

// Returns one text for each "{" that is not a placeholder with a value for this item. A null item
// has values for all placeholders.
std::vector<std::string> check_placeholders(const std::string& text, const ItemRow* item);

// Returns the text with all placeholders filled in; "{{" becomes "{". It must have passed the
// check.
std::string fill_placeholders(const std::string& text, const PlaceholderTexts& texts);

// "1" or "12.3": a whole number without decimals, else the shortest text that identifies the value.
std::string value_text(double value);

#endif

// {value}, {pid}, {flowid} and {instance} in the parameters of an alarm's report.
#ifndef MONITOR_PLACEHOLDERS_H
#define MONITOR_PLACEHOLDERS_H

#include <string>
#include <vector>

#include "item/item_table.h"

// What stands for the placeholders when an alarm is raised.
struct PlaceholderTexts {
  std::string value, pid, flow_id, instance;
};

// One text for each "{" that begins no placeholder which calls of this item can fill. A null item
// is taken for one that fills them all.
std::vector<std::string> check_placeholders(const std::string& text, const ItemRow* item);

// The text with everything filled in; "{{" becomes "{". It must have passed the check.
std::string fill_placeholders(const std::string& text, const PlaceholderTexts& texts);

// "1" or "12.3": a whole number without decimals, else as few digits as tell it from its
// neighbours.
std::string value_text(double value);

#endif

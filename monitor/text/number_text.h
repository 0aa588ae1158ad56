// Numbers as text.
#ifndef MONITOR_NUMBER_TEXT_H
#define MONITOR_NUMBER_TEXT_H

#include <string>

// "10" or "0.5": up to ten significant digits, without trailing zeros.
std::string number_text(double number);

#endif

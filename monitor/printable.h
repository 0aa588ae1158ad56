// Text of others made fit for a terminal.
#ifndef MONITOR_PRINTABLE_H
#define MONITOR_PRINTABLE_H

#include <algorithm>
#include <string>

// Names and reasons can hold what another process chose: nothing may reach the terminal as a
// command to it.
inline std::string printable(std::string text) {
  const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text;
}

#endif

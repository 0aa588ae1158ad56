// Text of others made fit for a terminal, and laid out on it.
#ifndef MONITOR_TERMINAL_TEXT_H
#define MONITOR_TERMINAL_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

// Names, reasons and files can hold what somebody else chose: nothing may reach the terminal as a
// command to it. Control characters and bytes that are no UTF-8 become "?", one each.
std::string printable(const std::string& text);

// Where the first byte stands that is no UTF-8; npos if there is none.
size_t first_malformed(const std::string& text);

// Columns on a terminal that UTF-8 text takes, wide characters aside.
size_t width_of(const std::string& text);

// The text with spaces behind or before it up to `width` columns; longer text stays as it is.
std::string left(const std::string& text, size_t width);
std::string right(const std::string& text, size_t width);

// As many whole characters as fit into `width` columns.
std::string cut(const std::string& text, size_t width);

// The cells of one line, two spaces apart, none behind the last.
std::string joined_cells(const std::vector<std::string>& cells);

#endif

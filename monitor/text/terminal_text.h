// Makes foreign text safe for a terminal and aligns it in columns.
#ifndef MONITOR_TERMINAL_TEXT_H
#define MONITOR_TERMINAL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Replaces each control character and each byte that is not valid UTF-8 by "?". Names, reasons and
// files can contain text chosen by other users, which must not control the terminal.
std::string printable(const std::string& text);

// The length of the first character of a text that is not empty; 1 if it is not valid UTF-8.
size_t first_character(std::string_view text);

// True for C0, DEL, C1, and for the marks that change the direction of text: with them a name can
// look like another one.
bool is_control(std::string_view character);

// The position of the first byte that is not valid UTF-8; npos if there is none.
size_t first_malformed(const std::string& text);

// The number of terminal columns of UTF-8 text; wide characters count as one column.
size_t width_of(const std::string& text);

// Pads the text with spaces on the right or left to `width` columns; longer text is unchanged.
std::string left(const std::string& text, size_t width);
std::string right(const std::string& text, size_t width);

// Truncates the text to the whole characters that fit into `width` columns.
std::string cut(const std::string& text, size_t width);

// Joins the cells of one line with two spaces, without spaces after the last.
std::string joined_cells(const std::vector<std::string>& cells);

// True if standard output is a terminal with colours, unless the user does not want them
// (https://no-color.org).
bool wants_colour();

// The text in red if `colour` is set.
std::string red(const std::string& text, bool colour);

#endif

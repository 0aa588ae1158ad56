#include "config/toml_error.h"

#include <algorithm>
#include <string_view>

#include "text/terminal_text.h"
#include "text/wording.h"

namespace {

constexpr char kBlanks[] = " \t\r";

// The place of the error.
struct Place {
  unsigned line_number;
  std::string line;  // without blanks around it
  std::string rest;  // the line from that place on
  std::string word;  // around that place
};

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// The line with this number, counted from 1; empty after the last line.
std::string nth_line(const std::string& text, unsigned number) {
  size_t begin = 0;
  for (unsigned i = 1; i < number && begin != std::string::npos; ++i) {
    begin = text.find('\n', begin);
    if (begin != std::string::npos) ++begin;
  }
  if (begin == std::string::npos) return "";
  return text.substr(begin, std::min(text.find('\n', begin), text.size()) - begin);
}

unsigned line_at(const std::string& text, size_t offset) {
  const auto end = text.begin() + static_cast<std::ptrdiff_t>(offset);
  return static_cast<unsigned>(std::count(text.begin(), end, '\n')) + 1;
}

std::string word_around(const std::string& line, size_t offset) {
  constexpr char kDelimiters[] = " \t\r=,[]{}#";
  const size_t before =
      offset == 0 ? std::string::npos : line.find_last_of(kDelimiters, offset - 1);
  const size_t begin = before == std::string::npos ? 0 : before + 1;
  return line.substr(begin, std::min(line.find_first_of(kDelimiters, offset), line.size()) - begin);
}

// Truncates long text; the start is enough to find it.
std::string shortened(const std::string& text) {
  constexpr size_t kMostColumns = 60;
  return width_of(text) <= kMostColumns ? text : cut(text, kMostColumns) + "...";
}

Place find_place(const std::string& text, const toml::source_position& position) {
  const std::string line = nth_line(text, position.line);
  const size_t offset = cut(line, std::max(position.column, 1U) - 1).size();
  return {position.line, shortened(trimmed(line)), shortened(trimmed(line.substr(offset))),
          shortened(word_around(line, offset))};
}

// True if the line is only a header, such as "[[instance]]".
bool is_header(const std::string& line) {
  const size_t begin = line.find_first_not_of('['), end = line.find_last_not_of(']');
  return begin != 0 && begin != std::string::npos && end + 1 < line.size() &&
         line.find_first_of(" ,'\"") == std::string::npos;
}

std::string unquoted(const Place& place) {
  const std::string& word = place.word;
  if (is_header(place.line)) {  // inside an open array, the parser reads it as an element
    return "found " + place.line + " inside [ ], expected the closing ] before it";
  }
  if (word.compare(0, 2, "\u201c", 2) == 0) {  // curly quotes begin with these bytes
    return "found " + word + " in curly quotes, expected straight quotes (\")";
  }
  return "found " + word + " without quotes, expected text in quotes (" + in_quotes(word) +
         "), a number, true or false";
}

// "[[instance" -> "]]"
std::string closing_of(const std::string& header) {
  return header.compare(0, 2, "[[") == 0 ? "]]" : "]";
}

// Part of the parser's message, and the description of the mistake. The first matching row counts.
struct Row {
  std::string_view part;
  std::string (*meaning)(const Place&);
};

const Row kRows[] = {
    {"string: encountered end-of-file",
     [](const Place&) -> std::string {
       return "a quoted text does not end, expected the closing quotes";
     }},
    {"control characters",
     [](const Place& place) -> std::string {
       return place.rest.empty()
                  ? "a quoted text does not end in this line, expected the closing quote"
                  : "a control character in a text, expected an escape such as \\t or \\u001b in "
                    "double quotes";
     }},
    {"unknown escape sequence",
     [](const Place&) -> std::string {
       return "unknown escape after a backslash in double quotes, expected \\\\ or single quotes";
     }},
    {"encountered end-of-file",
     [](const Place&) -> std::string {
       return "the file ends inside [ ] or { }, expected the closing bracket";
     }},
    {"dangling comma",
     [](const Place&) -> std::string {
       return "found a comma before the closing }, expected none";
     }},
    {"table header: expected ']'",
     [](const Place& place) {
       return "the table header " + place.line + " is not closed, expected " +
              closing_of(place.line) + " after the name";
     }},
    {"array: expected comma",
     [](const Place& place) {
       return "found " + place.rest + " inside [ ], expected a comma or the closing ]";
     }},
    {"inline table: expected key or closing",
     [](const Place& place) {
       return place.rest.empty()
                  ? std::string("the line ends inside { }, expected the closing } in the same line")
                  : "found " + place.rest + " inside { }, expected a key or the closing }";
     }},
    {"inline table: expected comma",
     [](const Place& place) {
       return "found " + place.rest + " inside { }, expected a comma or the closing }";
     }},
    {"as array-of-tables",
     [](const Place& place) {
       return "found " + place.line + " after a table inside it, expected " + place.line + " first";
     }},
    {"cannot redefine",
     [](const Place& place) {
       return "found " + place.line +
              ", but this name already has a value, expected each name once";
     }},
    {"expected '='",
     [](const Place& place) {
       return "no = after the key in " + place.line + ", expected KEY = VALUE";
     }},
    {"expected value,",
     [](const Place&) -> std::string { return "no value after =, expected one on the same line"; }},
    {"comment or whitespace",
     [](const Place& place) {
       return "found " + place.rest +
              ", expected the end of the line (put text in quotes; a comment begins with #)";
     }},
    {"while parsing root table",
     [](const Place& place) {
       return "found " + place.line +
              ", expected KEY = VALUE, a table header in [ ] or a comment that begins with #";
     }},
    {"leading zeroes",
     [](const Place& place) {
       return "found " + place.word + ", expected a number without leading zeros";
     }},
    {"not representable",
     [](const Place& place) { return "found " + place.word + ", expected a smaller number"; }},
    {"expected decimal digit",
     [](const Place& place) {
       return "found " + place.word + ", expected a digit on both sides of the decimal point";
     }},
    {"could not determine value type", unquoted},
    {"while parsing boolean", unquoted},
    {"while parsing floating-point", unquoted},
    {"while parsing decimal integer", unquoted},
};

// For a text without closing quotes the parser only reports the end of the file. A multi-line text
// begins at the last triple quotes.
unsigned line_of_open_quotes(const std::string& text, unsigned end_line) {
  const size_t begin = std::max(text.rfind("\"\"\"") + 1, text.rfind("'''") + 1);
  return begin == 0 ? end_line : line_at(text, begin - 1);
}

}  // namespace

Mistake toml_mistake(const std::string& text, const toml::parse_error& error) {
  const std::string begins = "invalid TOML: ";
  const size_t malformed = first_malformed(text);
  if (malformed != std::string::npos) {
    return {line_at(text, malformed),
            begins + "found a byte that is not valid UTF-8, expected UTF-8 text"};
  }
  const std::string_view said = error.description();
  Place place = find_place(text, error.source().begin);
  if (said.find("string: encountered end-of-file") != std::string::npos) {
    place.line_number = line_of_open_quotes(text, place.line_number);
  }
  for (const Row& row : kRows) {
    if (said.find(row.part) != std::string::npos) {
      return {place.line_number, begins + row.meaning(place)};
    }
  }
  constexpr std::string_view kTheirs = "Error while parsing ";
  const bool is_theirs = said.compare(0, kTheirs.size(), kTheirs) == 0;
  return {place.line_number, begins + std::string(said.substr(is_theirs ? kTheirs.size() : 0))};
}

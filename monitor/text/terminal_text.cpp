#include "text/terminal_text.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

bool begins_character(char byte) {
  return (byte & 0xC0) != 0x80;
}

bool within(char byte, unsigned char least, unsigned char most) {
  const auto value = static_cast<unsigned char>(byte);
  return value >= least && value <= most;
}

// The length of a character with this first byte; 0 if the byte cannot be the first.
size_t length_by_first(char first) {
  if (within(first, 0x00, 0x7F)) return 1;
  if (within(first, 0xC2, 0xDF)) return 2;
  if (within(first, 0xE0, 0xEF)) return 3;
  return within(first, 0xF0, 0xF4) ? 4 : 0;
}

// False if the second byte means an overlong encoding, a surrogate, or a value above U+10FFFF.
bool second_fits(char first, char second) {
  switch (static_cast<unsigned char>(first)) {
    case 0xE0:
      return within(second, 0xA0, 0xBF);
    case 0xED:
      return within(second, 0x80, 0x9F);
    case 0xF0:
      return within(second, 0x90, 0xBF);
    case 0xF4:
      return within(second, 0x80, 0x8F);
    default:
      return within(second, 0x80, 0xBF);
  }
}

// The length of the character at the start of the text; 0 if it is not valid UTF-8.
size_t character_length(std::string_view text) {
  const size_t length = length_by_first(text.front());
  if (length == 0 || length > text.size()) return 0;
  if (length > 1 && !second_fits(text[0], text[1])) return 0;
  const auto follows = [](char byte) { return !begins_character(byte); };
  return std::all_of(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(length), follows)
             ? length
             : 0;
}

// ALM, LRM, RLM, and the embeddings, overrides and isolates, in UTF-8.
bool is_direction_mark(std::string_view character) {
  if (character == "\xD8\x9C") return true;
  if (character.size() != 3 || character[0] != '\xE2') return false;
  if (character[1] == '\x81') return within(character[2], 0xA6, 0xA9);
  return character[1] == '\x80' &&
         (within(character[2], 0x8E, 0x8F) || within(character[2], 0xAA, 0xAE));
}

}  // namespace

size_t first_character(std::string_view text) {
  return std::max<size_t>(character_length(text), 1);
}

bool is_control(std::string_view character) {
  const char first = character.front();
  return within(first, 0x00, 0x1F) || first == 0x7F ||
         (first == '\xC2' && character.size() == 2 && within(character[1], 0x80, 0x9F)) ||
         is_direction_mark(character);
}

std::string printable(const std::string& text) {
  std::string fit;
  for (std::string_view rest = text; !rest.empty();) {
    const size_t length = character_length(rest);
    const std::string_view character = rest.substr(0, std::max<size_t>(length, 1));
    fit += length == 0 || is_control(character) ? "?" : character;
    rest.remove_prefix(character.size());
  }
  return fit;
}

size_t first_malformed(const std::string& text) {
  for (std::string_view rest = text; !rest.empty();) {
    const size_t length = character_length(rest);
    if (length == 0) return text.size() - rest.size();
    rest.remove_prefix(length);
  }
  return std::string::npos;
}

size_t width_of(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), begins_character));
}

std::string left(const std::string& text, size_t width) {
  return text + std::string(width - std::min(width, width_of(text)), ' ');
}

std::string right(const std::string& text, size_t width) {
  return std::string(width - std::min(width, width_of(text)), ' ') + text;
}

std::string cut(const std::string& text, size_t width) {
  size_t end = 0;
  for (size_t characters = 0; end < text.size(); ++end) {
    if (begins_character(text[end]) && characters++ == width) break;
  }
  return text.substr(0, end);
}

std::string joined_cells(const std::vector<std::string>& cells) {
  std::string line;
  for (const std::string& cell : cells) line += (line.empty() ? "" : "  ") + cell;
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

bool wants_colour() {
  const char* const no_color = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return isatty(STDOUT_FILENO) != 0 && !(no_color && *no_color) &&
         !(terminal && std::strcmp(terminal, "dumb") == 0);
}

std::string red(const std::string& text, bool colour) {
  return colour ? "\033[31m" + text + "\033[0m" : text;
}

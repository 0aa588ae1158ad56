#include "text/json_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "text/terminal_text.h"

namespace {

// The first bytes of the control characters that the library does not escape.
constexpr char kFirstBytes[] = "\x7F\xC2\xD8\xE2";

// "\u202e", for a character of at most three bytes.
std::string escaped(std::string_view character) {
  constexpr unsigned kBitsOfFirst[] = {0x7F, 0x1F, 0x0F};
  unsigned code =
      static_cast<unsigned char>(character.front()) & kBitsOfFirst[character.size() - 1];
  for (const char byte : character.substr(1))
    code = code << 6 | (static_cast<unsigned char>(byte) & 0x3F);
  char text[8];
  std::snprintf(text, sizeof text, "\\u%04x", code & 0xFFFF);
  return text;
}

}  // namespace

std::string json_text(const Json& value) {
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  for (size_t at = 0; (at = text.find_first_of(kFirstBytes, at)) != std::string::npos;) {
    const std::string_view rest = std::string_view(text).substr(at);
    const std::string_view character = rest.substr(0, first_character(rest));
    const std::string shown(is_control(character) ? escaped(character) : character);
    text.replace(at, character.size(), shown);
    at += shown.size();
  }
  return text;
}

Json json_number(double value) {
  if (!std::isfinite(value)) return nullptr;
  char text[64];
  const auto written = std::to_chars(text, text + sizeof text, static_cast<float>(value));
  double decimal = value;
  std::from_chars(text, written.ptr, decimal);
  return decimal;
}

// JSON output.
#ifndef MONITOR_JSON_TEXT_H
#define MONITOR_JSON_TEXT_H

#include <optional>
#include <string>

#include "text/clock_text.h"
#include "text/json_memory.h"

// JSON on one line. Names and reasons can contain any bytes; invalid UTF-8 becomes U+FFFD, and
// control characters are escaped, because the reader can be a terminal.
std::string json_text(const Json& value);

// A measured value; null if it is not finite. Items measure in float: 12.3F must be written
// as 12.3, not 12.300000190734863.
Json json_number(double value);

// The value of this key; null if `json` is not an object or does not have the key.
inline const Json* value_in(const Json& json, const char* key) {
  const auto found = json.is_object() ? json.find(key) : json.end();
  return found == json.end() ? nullptr : &*found;
}

// The text of this key; nothing if there is none or it is not a string.
inline std::optional<std::string> text_in(const Json& json, const char* key) {
  const Json* const value = value_in(json, key);
  return value && value->is_string() ? std::optional(value->get<std::string>()) : std::nullopt;
}

// The time of this key, as iso8601() writes it; nothing if there is none.
inline std::optional<WallTime> time_in(const Json& json, const char* key) {
  const std::optional<std::string> text = text_in(json, key);
  return text ? read_iso8601(*text) : std::nullopt;
}

#endif

// JSON output.
#ifndef MONITOR_JSON_TEXT_H
#define MONITOR_JSON_TEXT_H

#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

// JSON on one line. Names and reasons can contain any bytes; invalid UTF-8 becomes U+FFFD.
inline std::string json_text(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

#endif

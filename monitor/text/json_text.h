// JSON as this program writes it.
#ifndef MONITOR_JSON_TEXT_H
#define MONITOR_JSON_TEXT_H

#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

// On one line. Names and reasons can hold any bytes: what is no UTF-8 comes out as U+FFFD.
inline std::string json_text(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

#endif

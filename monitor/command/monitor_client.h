// Asks the running monitor.
#ifndef MONITOR_MONITOR_CLIENT_H
#define MONITOR_MONITOR_CLIENT_H

#include <httplib.h>

#include <optional>
#include <string>

#include "text/json_text.h"

// "no monitor answers at PATH (why), expected one that runs with [status] socket or --socket", or
// what the monitor said when it refused; empty if `result` is an answer with a JSON body.
std::string answer_trouble(const httplib::Result& result, const std::string& socket);

// The body of the answer. If there is none, prints the reason and returns nothing.
std::optional<Json> body_of(const httplib::Result& result, const std::string& socket);

// The answer to GET for this path.
httplib::Result ask_monitor(const std::string& socket, const std::string& path);

// The path of a watch: "/api/watch/" and the name in percent-encoding.
std::string watch_path(const std::string& name);

// The value of this key; null if there is none.
const Json& member(const Json& object, const char* key);

// The text of this key for a terminal; empty if there is none.
std::string shown(const Json& object, const char* key);

#endif

// Where a webhook is.
#ifndef MONITOR_WEB_ADDRESS_H
#define MONITOR_WEB_ADDRESS_H

#include <optional>
#include <string>

struct WebAddress {
  std::string host;  // a name or a number, an IPv6 one without its brackets
  int port = 80;
  std::string path = "/";  // with the query
};

// "http://host[:port][/path][?query]". Nothing if it is anything else: another scheme, a user or
// password, a fragment, blanks, control characters or bytes beyond ASCII.
std::optional<WebAddress> read_web_address(const std::string& text);

#endif

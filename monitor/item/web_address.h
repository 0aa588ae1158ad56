// The address of a webhook.
#ifndef MONITOR_WEB_ADDRESS_H
#define MONITOR_WEB_ADDRESS_H

#include <optional>
#include <string>

struct WebAddress {
  std::string host;  // a name or an IP address, IPv6 without brackets
  int port = 80;
  std::string path = "/";  // including the query
};

// Reads "http://host[:port][/path][?query]". Nothing for any other text: another scheme, a user or
// password, a fragment, spaces, control characters or non-ASCII bytes.
std::optional<WebAddress> read_web_address(const std::string& text);

#endif

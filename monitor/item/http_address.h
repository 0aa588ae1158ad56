// The address at which the monitor answers HTTP requests over TCP.
#ifndef MONITOR_HTTP_ADDRESS_H
#define MONITOR_HTTP_ADDRESS_H

#include <sys/socket.h>

#include <optional>
#include <string>

struct HttpAddress {
  sockaddr_storage socket_address{};
  socklen_t length = 0;
  bool is_loopback = false;
  std::string text;  // as configured
};

// Reads an IP address and a port: "127.0.0.1:9757", "[::1]:9757". Nothing for any other text.
std::optional<HttpAddress> read_http_address(const std::string& text);

// True for an IP address, IPv6 without brackets, that only programs on this machine reach.
bool is_loopback_address(const std::string& address);

#endif

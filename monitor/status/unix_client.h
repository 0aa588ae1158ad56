// An HTTP client of a Unix socket. The HTTP library itself supports only TCP.
#ifndef MONITOR_UNIX_CLIENT_H
#define MONITOR_UNIX_CLIENT_H

#include <httplib.h>

#include <string>

#include "status/http_listener.h"

class UnixClient : public httplib::ClientImpl {
 public:
  explicit UnixClient(std::string path) : ClientImpl("localhost"), path_(std::move(path)) {}

 protected:
  bool create_and_connect_socket(Socket& socket, httplib::Error& error) override {
    std::optional<UniqueFd> connected = connect_to_path(path_);
    if (!connected) {
      error = httplib::Error::Connection;
      return false;
    }
    socket.sock = connected->release();
    return true;
  }

 private:
  const std::string path_;
};

#endif

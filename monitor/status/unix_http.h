// HTTP over a Unix socket: the library speaks TCP alone, so that the sockets are opened here.
#ifndef MONITOR_UNIX_HTTP_H
#define MONITOR_UNIX_HTTP_H

#include <httplib.h>

#include <string>

constexpr char kDefaultSocket[] = "/run/mirt-monitor/status.sock";

// A server with few threads and a bounded queue of connections.
class BoundedServer : public httplib::Server {
 public:
  BoundedServer();
};

class UnixServer : public BoundedServer {
 public:
  // Listens at `path` with mode 0660. A socket that nobody listens at any more is replaced;
  // anything else in its place is refused. On failure false, and `error` says why.
  bool open_at(const std::string& path, std::string& error);
  // Ends the server and takes the socket away.
  ~UnixServer() override;

 private:
  std::string path_;
};

class UnixClient : public httplib::ClientImpl {
 public:
  explicit UnixClient(std::string path) : ClientImpl("localhost"), path_(std::move(path)) {}

 protected:
  bool create_and_connect_socket(Socket& socket, httplib::Error& error) override;

 private:
  const std::string path_;
};

#endif

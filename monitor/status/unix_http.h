// HTTP over a Unix socket. The HTTP library supports only TCP, so this code opens the sockets.
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
  // Listens at `path` with mode 0660. Replaces a socket on which nobody listens; refuses any other
  // existing file. False, with the reason in `error`, on failure.
  bool open_at(const std::string& path, std::string& error);
  // Ends the server and removes the socket.
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

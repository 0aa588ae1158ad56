#include "status/http_listener.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "proc/replaced_file.h"

namespace {

constexpr int kBacklog = 128;

bool address_of(const std::string& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  path.copy(address.sun_path, path.size());
  return true;
}

const sockaddr* general(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

UniqueFd stream_socket(int family, int flags) {
  return UniqueFd(socket(family, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

void set_option(const UniqueFd& socket, int level, int option) {
  const int on = 1;
  setsockopt(socket.get(), level, option, &on, sizeof on);
}

// Removes a socket on which nobody listens. False, with errno set, if the path is still in use.
bool clear_place(const std::string& path, const sockaddr_un& address) {
  struct stat about {};
  if (lstat(path.c_str(), &about) != 0) return errno == ENOENT;
  if (!S_ISSOCK(about.st_mode)) {
    errno = EEXIST;
    return false;
  }
  const UniqueFd probe = stream_socket(AF_UNIX, SOCK_NONBLOCK);
  if (probe.get() < 0) return false;
  // EAGAIN: a process listens, and many connections wait.
  if (connect(probe.get(), general(address), sizeof address) == 0 || errno == EAGAIN) {
    errno = EADDRINUSE;
    return false;
  }
  return errno == ECONNREFUSED && unlink(path.c_str()) == 0;
}

bool bind_to_path(const UniqueFd& socket, const std::string& path) {
  sockaddr_un address{};
  const FilePlace place(path);
  if (place.folder.get() < 0 || !address_of(path, address)) return false;
  const std::string in_folder =
      "/proc/self/fd/" + std::to_string(place.folder.get()) + '/' + place.name;
  if (!address_of(in_folder, address) || !clear_place(in_folder, address)) return false;
  // With this mask, only owner and group can ever write to the socket.
  const mode_t mask = umask(0117);
  const bool is_bound = bind(socket.get(), general(address), sizeof address) == 0;
  umask(mask);
  return is_bound;
}

bool bind_to_address(const UniqueFd& socket, const HttpAddress& address) {
  set_option(socket, SOL_SOCKET, SO_REUSEADDR);
  if (address.socket_address.ss_family == AF_INET6) set_option(socket, IPPROTO_IPV6, IPV6_V6ONLY);
  return bind(socket.get(), reinterpret_cast<const sockaddr*>(&address.socket_address),
              address.length) == 0;
}

// The listener, if its socket `is_bound`.
std::optional<Listener> finish(UniqueFd socket, bool is_bound, Audience audience,
                               const std::string& place, std::string& error) {
  if (is_bound && listen(socket.get(), kBacklog) == 0) return Listener{std::move(socket), audience};
  error = place + ": " + std::strerror(errno);
  return std::nullopt;
}

}  // namespace

std::optional<Listener> listen_at_path(const std::string& path, std::string& error) {
  UniqueFd socket = stream_socket(AF_UNIX, SOCK_NONBLOCK);
  const bool is_bound = socket.get() >= 0 && bind_to_path(socket, path);
  return finish(std::move(socket), is_bound, Audience::kOwner, path, error);
}

std::optional<Listener> listen_at_address(const HttpAddress& address, std::string& error) {
  UniqueFd socket = stream_socket(address.socket_address.ss_family, SOCK_NONBLOCK);
  const bool is_bound = socket.get() >= 0 && bind_to_address(socket, address);
  return finish(std::move(socket), is_bound,
                address.is_loopback ? Audience::kMachine : Audience::kNetwork, address.text, error);
}

std::optional<UniqueFd> connect_to_path(const std::string& path) {
  sockaddr_un address{};
  UniqueFd socket = stream_socket(AF_UNIX, 0);
  if (socket.get() < 0 || !address_of(path, address)) return std::nullopt;
  // Also for connect(), which waits while too many other connections wait.
  const timeval limit{5, 0};
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (connect(socket.get(), general(address), sizeof address) != 0) return std::nullopt;
  return socket;
}

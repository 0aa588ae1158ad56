// Sockets on which clients connect.
#ifndef MONITOR_HTTP_LISTENER_H
#define MONITOR_HTTP_LISTENER_H

#include <optional>
#include <string>

#include "item/http_address.h"
#include "proc/unique_fd.h"

constexpr char kDefaultSocket[] = "/run/mirt-monitor/status.sock";

// Who can connect to a listener.
enum class Audience {
  kOwner,    // root and the group of the monitor, over the Unix socket
  kMachine,  // every program on this machine, and the pages that its browsers show
  kNetwork
};

struct Listener {
  UniqueFd socket;
  Audience audience;
};

// Listens at `path` with mode 0660. Replaces a socket on which nobody listens; refuses any other
// existing file, and a link to the folder that others could have made. Nothing, with the reason in
// `error`, on failure.
std::optional<Listener> listen_at_path(const std::string& path, std::string& error);

// Listens at this address. Nothing, with the reason in `error`, on failure.
std::optional<Listener> listen_at_address(const HttpAddress& address, std::string& error);

// A connection to the Unix socket at `path`; nothing, with errno set, if nobody listens there or
// the connection is not accepted within a few seconds.
std::optional<UniqueFd> connect_to_path(const std::string& path);

#endif

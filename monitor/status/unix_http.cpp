#include "status/unix_http.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "proc/unique_fd.h"

namespace {

constexpr size_t kThreads = 4, kMostWaiting = 64;
constexpr time_t kTimeoutS = 5;

class BoundedQueue final : public httplib::TaskQueue {
 public:
  BoundedQueue() {
    for (size_t i = 0; i < kThreads; ++i) threads_.emplace_back([this] { work(); });
  }

  // Waits for room. Meanwhile the kernel queues a few connections and refuses the others.
  void enqueue(std::function<void()> task) override {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return ending_ || tasks_.size() < kMostWaiting; });
    tasks_.push_back(std::move(task));
    wake_.notify_one();
  }

  void shutdown() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
    }
    wake_.notify_all();
    room_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  void work() {
    for (;;) {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [&] { return ending_ || !tasks_.empty(); });
      if (tasks_.empty()) return;
      const std::function<void()> task = std::move(tasks_.front());
      tasks_.pop_front();
      room_.notify_one();
      lock.unlock();
      task();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_, room_;
  std::deque<std::function<void()>> tasks_;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

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

int unix_socket() {
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

bool connect_to(int socket, const sockaddr_un& address) {
  return connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Removes a socket on which nobody listens. False, with errno set, if the path is still in use.
bool clear_place(const std::string& path, const sockaddr_un& address) {
  struct stat about {};
  if (lstat(path.c_str(), &about) != 0) return errno == ENOENT;
  if (!S_ISSOCK(about.st_mode)) {
    errno = EEXIST;
    return false;
  }
  const UniqueFd probe(unix_socket());
  if (probe.get() < 0) return false;
  if (connect_to(probe.get(), address)) {
    errno = EADDRINUSE;
    return false;
  }
  return errno == ECONNREFUSED && unlink(path.c_str()) == 0;
}

}  // namespace

BoundedServer::BoundedServer() {
  new_task_queue = [] { return new BoundedQueue; };
  set_keep_alive_max_count(1);
  set_read_timeout(kTimeoutS);
  set_write_timeout(kTimeoutS);
  set_payload_max_length(64 * 1024);
}

bool UnixServer::open_at(const std::string& path, std::string& error) {
  sockaddr_un address{};
  UniqueFd socket(unix_socket());
  // The umask sets mode 0660 from the first moment, so only owner and group can ever connect.
  const mode_t mask = umask(0117);
  const bool bound =
      socket.get() >= 0 && address_of(path, address) && clear_place(path, address) &&
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      ::listen(socket.get(), 64) == 0;
  error = bound ? "" : path + ": " + std::strerror(errno);
  umask(mask);
  if (!bound) return false;
  path_ = path;
  svr_sock_ = socket.release();
  return true;
}

UnixServer::~UnixServer() {
  if (!path_.empty()) unlink(path_.c_str());
}

bool UnixClient::create_and_connect_socket(Socket& socket, httplib::Error& error) {
  sockaddr_un address{};
  UniqueFd fd(unix_socket());
  if (fd.get() < 0 || !address_of(path_, address) || !connect_to(fd.get(), address)) {
    error = httplib::Error::Connection;
    return false;
  }
  socket.sock = fd.release();
  return true;
}

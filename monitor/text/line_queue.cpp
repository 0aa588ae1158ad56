#include "text/line_queue.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>
#include <utility>

#include "proc/join_or_detach.h"
#include "proc/spare_memory.h"

namespace {

// A thread that waits for the reader checks at this interval whether it must give up.
constexpr int kLookMs = 50;

// Values that arrive within this time are written together.
constexpr std::chrono::milliseconds kTogether{1};

// How long to wait for memory for the line about a loss.
constexpr std::chrono::milliseconds kUntilMemory{100};

// The time in which the thread must end after the request to give up. It never ends in a blocked
// write().
constexpr std::chrono::milliseconds kToGiveUp{1000};

// A terminal whose user has gone. A disk also fails with EIO, but never hangs up.
bool has_hung_up(int fd) {
  pollfd terminal{fd, 0, 0};
  return poll(&terminal, 1, 0) > 0 && (terminal.revents & POLLHUP) != 0;
}

}  // namespace

LineQueue::LineQueue(int fd, LossText loss_text, const Wake& wake)
    : fd_(fd), loss_text_(loss_text), wake_owner_(wake) {
  try {
    thread_ = std::thread([this] { write_lines(); });
  } catch (const std::exception&) {  // no thread, or no memory for one: ready() tells it
  }
}

LineQueue::~LineQueue() {
  if (thread_.joinable()) finish(std::chrono::milliseconds(0));
}

void LineQueue::push(std::string line, Weight weight) noexcept {
  const bool is_ordinary = weight == Weight::kOrdinary;
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  try {
    if (is_ordinary) {
      keep(ordinary_, std::move(line));
      while (ordinary_.lines.size() > kMostOrdinary || ordinary_.bytes > kMostOrdinaryBytes) {
        take_first(ordinary_);
        ++loss_.ordinary;
      }
    } else if (lasting_.lines.size() < kMostLasting && lasting_.bytes < kMostLastingBytes) {
      keep(lasting_, std::move(line));
    } else {
      ++loss_.lasting;
    }
  } catch (...) {  // no memory
    ++(is_ordinary ? loss_.ordinary : loss_.lasting);
  }
  wake_.notify_one();
}

void LineQueue::count_lost(Weight weight) noexcept {
  const std::lock_guard lock(mutex_);
  ++(weight == Weight::kOrdinary ? loss_.ordinary : loss_.lasting);
  wake_.notify_one();
}

void LineQueue::keep(Lane& lane, std::string line) {
  line += '\n';
  const size_t size = line.size();
  lane.lines.push_back({next_number_++, std::move(line)});
  lane.bytes += size;
}

std::string LineQueue::take_first(Lane& lane) {
  std::string line = std::move(lane.lines.front().text);
  lane.lines.pop_front();
  lane.bytes -= line.size();
  return line;
}

bool LineQueue::is_empty() const {
  return ordinary_.lines.empty() && lasting_.lines.empty() && !loss_.any();
}

// Returns a line about lost lines if there are any, else the older of the two lanes' first lines.
// If memory is too short for the line about the loss, the loss stays counted.
std::string LineQueue::next_line() {
  if (loss_.any()) {
    try {
      std::string line = loss_text_(loss_) + '\n';
      loss_ = {};
      return line;
    } catch (...) {
      if (ordinary_.lines.empty() && lasting_.lines.empty()) return "";
    }
  }
  return take_first(next_lane());
}

// The lane with the older first line. One of the two has a line.
LineQueue::Lane& LineQueue::next_lane() {
  if (ordinary_.lines.empty()) return lasting_;
  if (lasting_.lines.empty()) return ordinary_;
  return lasting_.lines.front().number < ordinary_.lines.front().number ? lasting_ : ordinary_;
}

// Returns as many lines as one write takes.
std::string LineQueue::next_lines() {
  std::string lines = next_line();
  in_flight_ = 1;
  try {
    if (!is_empty()) lines.reserve(PIPE_BUF);
  } catch (...) {
    return lines;  // memory is short: one line at a time
  }
  while (!is_empty() && !loss_.any() &&
         lines.size() + next_lane().lines.front().text.size() <= PIPE_BUF) {
    lines += take_first(next_lane());
    ++in_flight_;
  }
  return lines;
}

// Many values often arrive one after another. What lasts is not kept waiting.
void LineQueue::gather(std::unique_lock<std::mutex>& lock) const {
  if (finishing_ || !lasting_.lines.empty()) return;
  lock.unlock();
  std::this_thread::sleep_for(kTogether);
  lock.lock();
}

void LineQueue::write_lines() {
  const SpareMemoryRight right(true);
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [&] { return finishing_ || !is_empty(); });
    if (is_empty() || closed_) break;
    gather(lock);
    const std::string lines = next_lines();
    if (lines.empty()) {  // only a loss is left, and there is no memory to tell it
      if (finishing_) break;
      wake_.wait_for(lock, kUntilMemory);
      continue;
    }
    lock.unlock();
    const bool written = write_whole(lines);
    lock.lock();
    if (!written) break;
  }
  has_ended_ = true;
  ended_.notify_all();
}

// False if nothing more can be written, or after the request to give up.
bool LineQueue::write_whole(const std::string& lines) {
  for (size_t written = 0; written < lines.size();) {
    if (!wait_until_writable()) return false;
    // If poll() reports a pipe as writable, a write of PIPE_BUF bytes does not block.
    const size_t chunk = std::min<size_t>(lines.size() - written, PIPE_BUF);
    const ssize_t got = write(fd_, lines.data() + written, chunk);
    if (got > 0) {
      written += static_cast<size_t>(got);
    } else if (errno != EINTR && errno != EAGAIN) {
      close(errno);
      return false;
    }
  }
  return true;
}

bool LineQueue::wait_until_writable() const {
  while (!give_up_) {
    pollfd writable{fd_, POLLOUT, 0};
    const int count = poll(&writable, 1, kLookMs);
    if (count > 0) return true;                    // also on an error, which write() then returns
    if (count < 0 && errno != EINTR) return true;  // then write() waits
  }
  return false;
}

void LineQueue::close(int error) {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  const bool reader_has_gone = error == EPIPE || (error == EIO && has_hung_up(fd_));
  if (!reader_has_gone) error_ = error;
  wake_owner_.set();
}

bool LineQueue::closed() const {
  const std::lock_guard lock(mutex_);
  return closed_;
}

int LineQueue::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

unsigned long LineQueue::finish(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  finishing_ = true;
  wake_.notify_all();
  bool has_ended = ended_.wait_for(lock, limit, [&] { return has_ended_; });
  unsigned long lost = 0;
  if (!has_ended) {
    give_up_ = true;
    has_ended = ended_.wait_for(lock, kToGiveUp, [&] { return has_ended_; });
    lost = in_flight_;
  }
  if (!closed_) {
    lost += ordinary_.lines.size() + lasting_.lines.size() + loss_.ordinary + loss_.lasting;
  }
  lock.unlock();
  join_or_detach(thread_, has_ended);
  stuck_ = !has_ended;
  return lost;
}

// Lines on their way to a descriptor whose reader may be slow, or may have stopped.
#ifndef MONITOR_LINE_QUEUE_H
#define MONITOR_LINE_QUEUE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "proc/wake.h"

// A bounded queue with a thread that writes. push() never waits for the reader. Lines come out in
// the order in which they were pushed.
class LineQueue {
 public:
  enum class Weight { kOrdinary, kLasting };

  // What is kept while the reader does not read: the newest ordinary lines, and apart from them the
  // first lasting ones, each up to a number of lines and of bytes.
  static constexpr size_t kMostOrdinary = 1000, kMostLasting = 10000;
  static constexpr size_t kMostOrdinaryBytes = size_t{1} << 20,
                          kMostLastingBytes = size_t{16} << 20;

  struct Loss {
    unsigned long ordinary = 0, lasting = 0;
    bool any() const { return ordinary + lasting > 0; }
  };
  using LossText = std::string (*)(const Loss&);

  // Starts the thread. The descriptor is not owned. `loss_text` makes the line that tells of lost
  // lines; it comes before the first line that gets through after the loss. `wake` is set when the
  // output is closed.
  LineQueue(int fd, LossText loss_text, const Wake& wake);
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  // False, with errno set, if no thread was left.
  bool ready() const { return thread_.joinable(); }

  // On any thread. The newline is added. Without memory the line counts as lost.
  void push(std::string line, Weight weight) noexcept;

  // True once the reader has gone or the output failed; nothing is written from then on.
  bool closed() const;
  // Why it failed; 0 as long as it has not, and when the reader has merely gone.
  int error() const;
  // Writes what is left, for `limit` at most, and ends the thread. Returns the number of lines that
  // were lost for good because the reader did not read. Push nothing afterwards.
  unsigned long finish(std::chrono::milliseconds limit);

  // True after finish() if the thread is stuck in a write that does not return: the process must
  // then end by _exit().
  bool stuck() const { return stuck_; }

 private:
  struct Line {
    unsigned long number;
    std::string text;
  };
  struct Lane {
    std::deque<Line> lines;
    size_t bytes = 0;
  };

  void write_lines();
  bool write_whole(const std::string& line);
  bool wait_until_writable() const;
  void close(int error);
  void keep(Lane& lane, std::string line);
  std::string take_first(Lane& lane);
  std::string next_line();
  bool is_empty() const;

  const int fd_;
  const bool is_terminal_;
  const LossText loss_text_;
  const Wake& wake_owner_;
  std::atomic<bool> give_up_{false};
  mutable std::mutex mutex_;  // guards all below
  std::condition_variable wake_, ended_;
  Lane ordinary_, lasting_;
  Loss loss_;
  unsigned long next_number_ = 0;
  bool finishing_ = false, has_ended_ = false, closed_ = false, stuck_ = false;
  int error_ = 0;
  std::thread thread_;
};

#endif

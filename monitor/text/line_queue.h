// Writes lines to a descriptor whose reader may be slow or may have stopped.
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

// A bounded queue with a thread that writes. push() never waits for the reader. The order of the
// lines is kept.
class LineQueue {
 public:
  enum class Weight { kOrdinary, kLasting };

  // Limits while the reader does not read: the queue keeps the newest ordinary lines and,
  // separately, the oldest lasting lines.
  static constexpr size_t kMostOrdinary = 1000, kMostLasting = 10000;
  static constexpr size_t kMostOrdinaryBytes = size_t{1} << 20,
                          kMostLastingBytes = size_t{16} << 20;

  struct Loss {
    unsigned long ordinary = 0, lasting = 0;
    bool any() const { return ordinary + lasting > 0; }
  };
  using LossText = std::string (*)(const Loss&);

  // Starts the thread. Does not own the descriptor. `loss_text` returns the line about lost lines,
  // which is written before the first line after the loss. `wake` is set when the output is closed.
  LineQueue(int fd, LossText loss_text, const Wake& wake);
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  // False if the thread could not be started.
  bool ready() const { return thread_.joinable(); }

  // On any thread. Adds the newline. If memory is short, the line counts as lost.
  void push(std::string line, Weight weight) noexcept;

  // On any thread. For a line for which there was no memory.
  void count_lost(Weight weight) noexcept;

  // True after the reader closed the output or the output failed; nothing is written any more.
  bool closed() const;
  // The errno of the failure; 0 if there is none or the reader closed the output.
  int error() const;
  // Writes the remaining lines, for at most `limit`, and ends the thread. Returns the number of
  // lines that were lost because the reader did not read. Do not push afterwards.
  unsigned long finish(std::chrono::milliseconds limit);

  // True after finish() if the thread is stuck in a write that does not return. The process must
  // then call _exit().
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

  void gather(std::unique_lock<std::mutex>& lock) const;
  void write_lines();
  bool write_whole(const std::string& lines);
  bool wait_until_writable() const;
  void close(int error);
  void keep(Lane& lane, std::string line);
  std::string take_first(Lane& lane);
  std::string next_line();
  std::string next_lines();
  Lane& next_lane();
  bool is_empty() const;

  const int fd_;
  const LossText loss_text_;
  const Wake& wake_owner_;
  std::atomic<bool> give_up_{false};
  mutable std::mutex mutex_;  // guards all below
  std::condition_variable wake_, ended_;
  Lane ordinary_, lasting_;
  Loss loss_;
  unsigned long next_number_ = 0;
  unsigned long in_flight_ = 0;  // lines that the thread is writing
  bool finishing_ = false, has_ended_ = false, closed_ = false, stuck_ = false;
  int error_ = 0;
  std::thread thread_;
};

#endif

// The metrics as a file, for the node exporter's collector of text files.
#ifndef MONITOR_METRICS_FILE_H
#define MONITOR_METRICS_FILE_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "item/plan.h"
#include "state/publisher.h"

// Replaces the file regularly, on its own thread, so that a slow disk delays nobody. A failure is
// logged once until it changes, and so is the first success after it.
class MetricsFile {
 public:
  // Starts the thread. If that fails, logs it; nothing is then written. The publisher must outlive
  // this.
  MetricsFile(MetricsFilePlan plan, Publisher& publisher);
  // Calls finish() if it has not been called.
  ~MetricsFile();
  MetricsFile(const MetricsFile&) = delete;
  MetricsFile& operator=(const MetricsFile&) = delete;

  // Ends the thread and removes the file: its values would look like those of a running monitor.
  // False if the thread does not end within the limit; the process must then call _exit(). Call
  // Publisher::close() before.
  bool finish(std::chrono::milliseconds limit);

 private:
  void work() noexcept;
  std::string write() noexcept;
  void say(std::string error) noexcept;

  const MetricsFilePlan plan_;
  Publisher& publisher_;
  std::string error_;        // the last one; only the thread uses it
  bool is_written_ = false;  // once at least; only the thread uses it
  std::mutex mutex_;         // guards the members below, not the thread
  std::condition_variable wake_, ended_;
  bool ending_ = false, has_ended_ = false;
  std::thread thread_;
};

#endif

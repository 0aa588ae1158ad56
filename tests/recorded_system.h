// The system and the framework around the hung-thread items. This program defines their functions
// before the libraries do; the RecordedSystem of the test answers every call and notes it.
#ifndef RECORDED_SYSTEM_H
#define RECORDED_SYSTEM_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

using Trace = std::vector<std::string>;

struct RecordedSystem {
  RecordedSystem();
  RecordedSystem(const RecordedSystem&) = delete;
  RecordedSystem& operator=(const RecordedSystem&) = delete;

  // The calls since the last take(), in their order, one text each.
  Trace take();
  void note(std::string call);

  std::function<FILE*(const char* command)> popen;        // none: an empty stream
  std::function<int(pid_t, int* status)> process_status;  // none: a healthy process
  std::function<uint64_t()> jiffies;
  std::optional<std::string> reply = std::string(1, 1);  // bytes; none: a null buffer
  int send_result = 0, exec_result = 0, signal_result = 0;
  bool real_shells = false, real_framework = false, real_signals = false;  // noted, and done

 private:
  std::mutex mutex_;
  Trace trace_;
};

// A record of process_status.cpp; level as in "error".
std::string logged(const std::string& level, const std::string& function, const std::string& text);

#endif

// The system and the framework around the hung-thread items. This program defines their functions
// before the libraries do; the RecordedSystem of the test answers every call and notes it.
#ifndef RECORDED_SYSTEM_H
#define RECORDED_SYSTEM_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

struct RecordedSystem {
  RecordedSystem() { current = this; }
  ~RecordedSystem() { current = nullptr; }

  // The calls since the last take(), in their order, one line each; of log records, those of
  // process_status.cpp under its module.
  std::string take();
  void note(const std::string& call);

  std::function<FILE*(const char* command)> popen;  // none: an empty stream
  std::function<int(int pid)> pid_status;           // none: a healthy process; -1: cannot be told
  std::function<uint64_t()> jiffies;
  struct Answers {
    int reply = 1;  // the first byte of the framework's answer; -1: a null buffer
    int send = 0, exec = 0, signal = 0;
  } answers;
  inline static RecordedSystem* current = nullptr;
  bool real_shells = false, real_framework = false, real_signals = false;  // noted, and done

 private:
  std::mutex mutex_;
  std::string trace_;
};

#endif

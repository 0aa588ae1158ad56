// The system and the framework around the hung-thread items. This program replaces their functions;
// the test's RecordedSystem answers and records every call.
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

  // The calls since the last take(), in order, one line each; only log records of
  // process_status.cpp with its module.
  std::string take();
  void note(const std::string& call);

  std::function<FILE*(const char* command)> popen;  // empty: an empty stream
  std::function<int(int pid)> pid_status;           // empty: a normal process; -1: unknown
  std::function<uint64_t()> jiffies;
  struct Answers {
    int reply = 1;  // the first byte of the framework's answer; -1: a null buffer
    int send = 0, exec = 0, signal = 0;
  } answers;
  inline static RecordedSystem* current = nullptr;
  bool real_shells = false, real_framework = false, real_signals = false;  // recorded, and executed

 private:
  std::mutex mutex_;
  std::string trace_;
};

#endif

// Work for a thread while an item sleeps on it. The plug-in's items that compare two samples call
// usleep() in between. This program replaces that function, so that one thread can make several of
// these calls: the next one begins while the item of the one before it sleeps.
#ifndef MONITOR_SLEEP_WORK_H
#define MONITOR_SLEEP_WORK_H

#include <functional>

// While this object exists, usleep() on the current thread first does this work, which may sleep
// itself, and then sleeps for the rest of the time.
class SleepWork {
 public:
  explicit SleepWork(std::function<void()> work);
  SleepWork(const SleepWork&) = delete;
  SleepWork& operator=(const SleepWork&) = delete;
  ~SleepWork();

 private:
  const std::function<void()> work_;
};

#endif

// What outlasts a restart of the monitor: a file that is always whole.
#ifndef MONITOR_STATE_STORE_H
#define MONITOR_STATE_STORE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "item/alarm_rule.h"
#include "item/silence.h"
#include "text/clock_text.h"

// An alarm that is raised.
struct SavedAlarm {
  std::string instance;
  std::string condition;  // which of the instance's alarms: what the caller tells them apart by
  Severity severity = Severity::kCritical;
  std::string id;
  WallTime since{};
  std::optional<WallTime> told{};  // when an alert was last told of it
};

struct SavedState {
  std::vector<SavedAlarm> alarms{};
  std::vector<Silence> silences{};
  std::map<std::string, uint64_t> counters{};
  std::vector<WallTime> recoveries{};  // when each was allowed
};

// One line of JSON, times to the millisecond. Text that is no UTF-8 is not kept as it is.
std::string state_text(const SavedState& state);
// Nothing, with what is wrong in `error`, if it is not such a text.
std::optional<SavedState> read_state(const std::string& text, std::string& error);

struct StateReading {
  SavedState state{};       // empty unless a whole file was found
  bool found = false;       // a whole one
  std::string damage{};     // what was wrong with the file that was found
  std::string set_aside{};  // under which name it is now; empty if it is where it was
};

// Keeps one state file. A thread of its own writes: a slow disk holds up nobody.
//
// The file has mode 0600 and is replaced as a whole: a new file in its folder is written, synced
// and renamed, and the folder synced. In folders that others than this user and root can write to,
// no symbolic link is followed. What goes wrong is said in the log.
class StateStore {
 public:
  // Reads the file, before a store of it is made. One that is damaged, or not this user's or root's
  // alone to write, is no state: it is renamed to "FILE.damaged-TIME", and the log is told.
  static StateReading load(const std::string& path);

  // Starts the thread. Without one nothing is written, which is said in the log.
  explicit StateStore(std::string path,
                      std::chrono::milliseconds between = std::chrono::seconds(1));
  // Calls finish() if nobody has.
  ~StateStore();
  StateStore(const StateStore&) = delete;
  StateStore& operator=(const StateStore&) = delete;

  // Has this state written: soon, but with at least `between` from one to the next, and then the
  // newest one. Never waits for the disk. Without memory the former state stays.
  void save(SavedState state) noexcept;

  // Why the last attempt to write failed; empty if it did not. A failed one is repeated.
  std::string error() const;

  // Writes what is still to be written and ends the thread. False if it could not be written within
  // the limit. Where the thread then still waits for the disk, stuck() is true, and the process has
  // to end by _exit().
  bool finish(std::chrono::milliseconds limit);
  bool stuck() const { return stuck_; }

 private:
  class Writer;

  const std::shared_ptr<Writer> writer_;  // the thread owns it too
  bool finished_ = false, stuck_ = false;
};

#endif

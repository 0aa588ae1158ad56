// The state that the monitor keeps over a restart, in a file that is always complete.
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

// A raised alarm.
struct SavedAlarm {
  std::string instance;
  std::string condition;  // identifies the alarm among those of the instance
  Severity severity = Severity::kCritical;
  std::string id;
  WallTime since{};
  std::optional<WallTime> told{};  // when the last alert about it was sent
};

struct SavedState {
  std::vector<SavedAlarm> alarms{};
  std::vector<Silence> silences{};
  std::map<std::string, uint64_t> counters{};
  std::vector<WallTime> recoveries{};  // the time of each allowed one
};

// One line of JSON. Times are in milliseconds; invalid UTF-8 becomes U+FFFD.
std::string state_text(const SavedState& state);
// The state in such a text. Nothing, with the reason in `error`, if the text is not valid.
std::optional<SavedState> read_state(const std::string& text, std::string& error);

struct StateReading {
  SavedState state{};       // empty unless a valid file was found
  bool found = false;       // a valid file
  std::string damage{};     // what is wrong with the file; empty if nothing is
  std::string set_aside{};  // the new name of a damaged file; empty if it was not renamed
};

// Writes one state file on its own thread, so that a slow disk delays nobody.
//
// The file has mode 0600 and is replaced atomically: the store writes and syncs a new file in the
// same folder, renames it, and syncs the folder. It does not follow symbolic links in folders that
// users other than this one and root can write to. Failures are logged.
class StateStore {
 public:
  // Reads the file. Call it before a store of the same file is created. A file that is damaged, or
  // that other users can write to, is renamed to "FILE.damaged-TIME", and that is logged.
  static StateReading load(const std::string& path);

  // Starts the thread. If that fails, logs it; nothing is then written.
  explicit StateStore(std::string path,
                      std::chrono::milliseconds between = std::chrono::seconds(1));
  // Calls finish() if it has not been called.
  ~StateStore();
  StateStore(const StateStore&) = delete;
  StateStore& operator=(const StateStore&) = delete;

  // Writes this state soon. Two writes are at least `between` apart; if there were several calls in
  // that time, only the last state is written. Failed writes are repeated. Never waits for the
  // disk.
  void save(SavedState state) noexcept;

  // Writes the last state, if it is not written yet, and ends the thread. False if that failed or
  // did not end within the limit. If the thread still waits for the disk then, stuck() is true, and
  // the process must call _exit().
  bool finish(std::chrono::milliseconds limit);
  bool stuck() const { return stuck_; }

 private:
  class Writer;

  const std::shared_ptr<Writer> writer_;  // the thread owns it, too
  bool finished_ = false, stuck_ = false;
};

#endif

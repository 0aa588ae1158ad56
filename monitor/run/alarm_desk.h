// What answers mean for the alarms, and who is told.
#ifndef MONITOR_ALARM_DESK_H
#define MONITOR_ALARM_DESK_H

#include <chrono>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "alert/alert_sender.h"
#include "alert/silences.h"
#include "item/alert.h"
#include "output/reporter.h"
#include "run/slot.h"
#include "text/json_text.h"

// Why several instances change at one time. Messages with one key become one message.
struct Cause {
  std::string key;   // empty: no common cause
  std::string text;  // "process 77 was killed by signal 9 after 3 h"
};

// Used by the scheduler's thread alone.
class AlarmDesk {
 public:
  using Clock = std::chrono::steady_clock;

  // Messages of one cause that come within this time are sent as one.
  static constexpr std::chrono::milliseconds kGather{250};

  // `prefix` makes the ids of alarms unique over restarts. All must outlive the desk.
  AlarmDesk(Reporter& reporter, AlertSender& sender, Silences& silences, std::string prefix)
      : reporter_(reporter), sender_(sender), silences_(silences), prefix_(std::move(prefix)) {}

  void set_alerts(const std::vector<Alert>& alerts);

  // Judges the alarms by this answer, completes it, writes its line and those of the alarms.
  void settle(Slot& slot, Answer& answer, const Cause& cause, Clock::time_point now);

  // The same for a beat that has passed while the instance is blind.
  void settle_blind(Slot& slot, Clock::time_point now);

  // The instance is not watched any more: its alarms end.
  void leave(Slot& slot);

  // An alarm that was raised before a restart is raised still.
  void restore(Slot& slot, AlarmSlot& alarm, std::string id, WallTime since);

  // Sends what has been gathered, and reminders. The next time something is due.
  void send_due(std::list<Slot>& slots, Clock::time_point now);
  Clock::time_point next_due() const { return next_due_; }
  void send_all();

  const Silences& silences() const { return silences_; }

  // True if something that outlasts a restart has changed since the last time.
  bool take_changed() { return std::exchange(changed_, false); }
  void note_change() { changed_ = true; }

 private:
  struct Message {
    std::string alert;
    Cause cause;
    Clock::time_point due;
    std::vector<std::string> instances;
    Json body;
  };

  void raise(Slot& slot, AlarmSlot& alarm, WallTime since);
  void change(Slot& slot, AlarmSlot& alarm, const Answer* answer, State state, const Cause& cause,
              Clock::time_point now);
  void tell(const char* event, const Slot& slot, AlarmSlot& alarm, const Answer* answer,
            State state, const Cause& cause, Clock::time_point now);
  void order_reports(const Slot& slot, AlarmSlot& alarm, const Answer* answer, State state);
  void remind(const Slot& slot, AlarmSlot& alarm, Clock::time_point now);
  double repeat_of(const AlarmRule& rule) const;
  void send(Message& message);

  Reporter& reporter_;
  AlertSender& sender_;
  Silences& silences_;
  std::string prefix_;
  std::map<std::string, Alert> alerts_;
  std::vector<Message> gathered_;
  Clock::time_point next_due_ = Clock::time_point::max();
  unsigned long raised_ = 0;
  bool changed_ = false;
};

#endif

// Raises and clears alarms, and sends their alerts and reports.
#ifndef MONITOR_ALARM_DESK_H
#define MONITOR_ALARM_DESK_H

#include <chrono>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "alert/alert_sender.h"
#include "alert/silences.h"
#include "item/alert.h"
#include "output/reporter.h"
#include "run/slot.h"
#include "text/json_text.h"

// The cause of a change. Messages with the same key are sent as one message.
struct Cause {
  std::string key;   // empty: no common cause
  std::string text;  // "process 77 was killed by signal 9 after 3 h"
};

// Used by the scheduler's thread alone.
class AlarmDesk {
 public:
  using Clock = std::chrono::steady_clock;

  // Messages with the same cause within this time are sent as one.
  static constexpr std::chrono::milliseconds kGather{250};

  // `prefix` makes alarm ids unique over restarts. The arguments must outlive the desk.
  AlarmDesk(Reporter& reporter, AlertSender& sender, Silences& silences, std::string prefix)
      : reporter_(reporter), sender_(sender), silences_(silences), prefix_(std::move(prefix)) {}

  // By name.
  void set_alerts(std::map<std::string, Alert> alerts) noexcept { alerts_.swap(alerts); }

  // Evaluates the alarms with this answer, completes the answer, and writes the lines.
  void settle(Slot& slot, Answer& answer, const Cause& cause, Clock::time_point now);

  // The same for a start time that passed while the instance is blind.
  void settle_blind(Slot& slot, Clock::time_point now);

  // Clears the alarms of an instance that is no longer configured.
  void leave(Slot& slot);

  // Marks an alarm as raised that was raised before a restart.
  void restore(Slot& slot, AlarmSlot& alarm, std::string id, WallTime since);

  // Sends the messages and reminders that are due.
  void send_due(std::list<Slot>& slots, Clock::time_point now);
  // The time of the next message or reminder.
  Clock::time_point next_due() const { return next_due_; }
  // Sends all messages at once, at the end of the program.
  void send_all();

  const Silences& silences() const { return silences_; }

  // True if something that is kept over a restart has changed.
  bool has_changed() const { return changed_; }
  void note_change() { changed_ = true; }
  void forget_change() { changed_ = false; }

 private:
  struct Message {
    std::string alert;
    Cause cause;
    Clock::time_point due;
    std::vector<std::string> instances;
    Json body;
  };

  // A change that was not told yet. The alarm takes it on when its line is written, so that one for
  // which there was no memory comes again with the next answer.
  struct Change {
    AlarmSlot* slot;
    Alarm alarm;
  };

  void name(AlarmSlot& alarm, WallTime since);
  void change(Slot& slot, const Change& change, const Answer* answer, State state,
              const Cause& cause, Clock::time_point now);
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

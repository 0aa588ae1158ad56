// The system's journal: structured records, and the priorities of lines on standard error.
#ifndef MONITOR_JOURNAL_H
#define MONITOR_JOURNAL_H

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "service/courier.h"

// As in syslog(3): 3 is an error, 6 is information.
enum class Priority {
  kCritical = 2,
  kError = 3,
  kWarning = 4,
  kNotice = 5,
  kInformation = 6,
  kDebug = 7
};

// True if standard error goes to the journal.
bool is_in_journal();

// "<4>" if standard error goes to the journal, which takes it for the priority of the line;
// otherwise empty.
std::string line_priority(Priority priority);
// The same for a level name of the platform's log: "warning".
std::string line_priority(const char* level);

// The kinds of records. Each has an entry in packaging/mirt-monitor.catalog.
extern const char kAlarmRaisedId[];
extern const char kAlarmClearedId[];
extern const char kStateChangedId[];
extern const char kWentBlindId[];
extern const char kReportSentId[];
extern const char kEventId[];

// A record on its way to the journal.
struct JournalRecord {
  const char* message_id;
  Priority priority;
  std::string message;
  std::vector<std::pair<const char*, std::string>> fields;  // "MIRT_WATCH"; empty ones are left out
};

// Sends records to the journal on its own thread, so that a stuck journal delays nobody.
class Journal {
 public:
  void send(JournalRecord record) noexcept;

  // Sends what is left, for at most `limit`. False if the journal does not take it: the process
  // must then call _exit().
  bool finish(std::chrono::milliseconds limit) { return courier_.finish(limit); }

 private:
  Courier courier_;
};

#endif

// Passes reports from the items that send them to the thread that writes them.
#ifndef MONITOR_REPORT_QUEUE_H
#define MONITOR_REPORT_QUEUE_H

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "item/params.h"
#include "mirt_host.h"
#include "proc/wake.h"
#include "text/clock_text.h"

// The sender of a report: the instance whose item sends it, and the alarm, if there is one.
struct ReportOrigin {
  std::string instance;
  std::string alarm;
};

// Sets the origin of all further reports of this thread; null: none. The record must stay valid
// until the next call.
void set_report_origin(const ReportOrigin* origin);

// A report or error as an item sent it.
struct Report {
  WallTime time;
  ReportOrigin origin;
  uint16_t res_type;
  uint32_t err_code;
  std::string res_id;
  uint8_t rpt_type;
  std::vector<Param> params;  // in the order in which they were attached
  std::string description;
  std::optional<std::string> function;  // the sender of an error without a report object
  uint32_t line;                        // valid with `function`
};

// "0xF000020F"
std::string err_code_text(const Report& report);

// "report 0xF000020F  resType 0xF011 ...": the whole report on one line.
std::string report_text(const Report& report);

// Any thread adds reports; one thread takes them.
class ReportQueue {
 public:
  // `wake` is set when a report arrives.
  explicit ReportQueue(const Wake& wake) : wake_(wake) {}
  // The host library must not deliver reports any more.
  ~ReportQueue() = default;
  ReportQueue(const ReportQueue&) = delete;
  ReportQueue& operator=(const ReportQueue&) = delete;

  // From now on the host library delivers every report to this queue.
  void connect();

  // The reports since the previous call.
  std::vector<Report> take();

 private:
  static int32_t receive(const MIRT_HOST_REPORT_S* report, void* user);

  const Wake& wake_;
  std::mutex mutex_;
  std::vector<Report> reports_;
};

#endif

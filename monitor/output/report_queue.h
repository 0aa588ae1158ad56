// Reports on their way from the items that send them to the thread that writes.
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

// Who sends a report: the instance whose item does, and the alarm that it belongs to, if any.
struct ReportOrigin {
  std::string instance;
  std::string alarm;
};

// Names the origin of all reports that this thread sends from now on; null: none. The record must
// stay where it is until then.
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
  std::optional<std::string> function;  // where an error without a report object was sent
  uint32_t line;                        // with `function`
};

// "0xF000020F"
std::string err_code_text(const Report& report);

// "report 0xF000020F  resType 0xF011 ...": everything in one line, as it came.
std::string report_text(const Report& report);

// Filled on the threads of the items, emptied by one.
class ReportQueue {
 public:
  // `wake` is set when a report has come.
  explicit ReportQueue(const Wake& wake) : wake_(wake) {}
  // The host library must send nothing any more.
  ~ReportQueue() = default;
  ReportQueue(const ReportQueue&) = delete;
  ReportQueue& operator=(const ReportQueue&) = delete;

  // Has the host library deliver every report here.
  void connect();

  std::vector<Report> take();

 private:
  static int32_t receive(const MIRT_HOST_REPORT_S* report, void* user);

  const Wake& wake_;
  std::mutex mutex_;
  std::vector<Report> reports_;
};

#endif

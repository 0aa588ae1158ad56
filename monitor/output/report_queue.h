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
#include "proc/unique_fd.h"
#include "text/clock_text.h"

// A report or error as an item sent it.
struct Report {
  WallTime time;
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
  ReportQueue();
  // The host library must send nothing any more.
  ~ReportQueue() = default;
  ReportQueue(const ReportQueue&) = delete;
  ReportQueue& operator=(const ReportQueue&) = delete;

  // Has the host library deliver every report here.
  void connect();

  // False if no descriptor was left for fd().
  bool ready() const { return filled_fd_.get() >= 0; }

  // Becomes readable when a report has come.
  int fd() const { return filled_fd_.get(); }

  std::vector<Report> take();

 private:
  static int32_t receive(const MIRT_HOST_REPORT_S* report, void* user);

  UniqueFd filled_fd_;
  std::mutex mutex_;
  std::vector<Report> reports_;
};

#endif

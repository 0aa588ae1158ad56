#include "output/report_queue.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace {

thread_local const ReportOrigin* report_origin = nullptr;

Report copy_of(const MIRT_HOST_REPORT_S& sent) {
  const MIRT_PRIMARY_KEY_S& key = sent.key;
  Report report{std::chrono::system_clock::now(),
                report_origin ? *report_origin : ReportOrigin{},
                key.resType,
                key.errCode,
                std::string(key.resId, strnlen(key.resId, sizeof key.resId)),
                key.rptType,
                {},
                sent.description,
                std::nullopt,
                sent.line};
  for (uint32_t i = 0; i < sent.paramCount; ++i) {
    report.params.push_back({sent.params[i].name, sent.params[i].value});
  }
  if (sent.funcName) report.function = sent.funcName;
  return report;
}

}  // namespace

void set_report_origin(const ReportOrigin* origin) {
  report_origin = origin;
}

std::string err_code_text(const Report& report) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", report.err_code);
  return text;
}

std::string report_text(const Report& report) {
  char type[16];
  std::snprintf(type, sizeof type, "0x%04X", unsigned{report.res_type});
  std::string text = "report " + err_code_text(report) + "  resType " + type;
  if (!report.function) text += "  resId " + report.res_id;
  text += "  rptType " + std::to_string(report.rpt_type);
  for (const Param& param : report.params) text += "  " + param.name + "=" + param.value;
  if (!report.description.empty()) text += "  \"" + report.description + "\"";
  if (report.function) text += "  " + *report.function + ":" + std::to_string(report.line);
  return text;
}

void ReportQueue::connect() {
  mirt_host_set_report_handler(receive, this);
}

// Called from C, so it must not throw. A report that cannot be stored is refused.
int32_t ReportQueue::receive(const MIRT_HOST_REPORT_S* report, void* user) try {
  auto& queue = *static_cast<ReportQueue*>(user);
  Report copy = copy_of(*report);
  const std::lock_guard lock(queue.mutex_);
  queue.reports_.push_back(std::move(copy));
  queue.wake_.set();
  return 0;
} catch (...) {
  return -1;
}

std::vector<Report> ReportQueue::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(reports_, {});
}

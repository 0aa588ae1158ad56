#include <charconv>
#include <cmath>

#include "item/alarm_rule.h"
#include "output/reporter.h"
#include "text/json_text.h"
#include "text/log_lines.h"

namespace {

// Items measure in float: 12.3F is to be written as 12.3, not as 12.300000190734863.
double shortest(double value) {
  char text[64];
  const auto written = std::to_chars(text, text + sizeof text, static_cast<float>(value));
  double decimal = value;
  std::from_chars(text, written.ptr, decimal);
  return decimal;
}

Json number(const ItemRow& item, double value) {
  if (!std::isfinite(value)) return nullptr;
  if (item.returns == Returns::kInt) return static_cast<int>(value);
  return shortest(value);
}

const char* state_of(const Answer& answer) {
  if (answer.called_since) return "late";
  return answer.valid() ? "ok" : "failed";
}

class JsonReporter final : public Reporter {
 public:
  explicit JsonReporter(LineWriter& out) : out_(out) {}

  void answered(const Answer& answer) override {
    Json line = with_value(answer, "item", state_of(answer));
    line["result"] = answer.result.result;
    line["reason"] = answer.valid() ? "" : answer.result.reason;
    add_details(line, answer);
    if (answer.called_since) line["since"] = iso8601(*answer.called_since);
    write(line);
  }

  void went_blind(const Blindness& blindness) override {
    Json line = beginning(blindness.time, "item", blindness.instance, "blind");
    line["value"] = nullptr;
    line["unit"] = blindness.instance.unit;
    line["pid"] = nullptr;
    line["result"] = nullptr;
    line["reason"] = "no answer before the deadline";
    line["since"] = iso8601(blindness.since);
    write(line);
  }

  void alarm_changed(const AlarmChange& change) override {
    Json line = with_value(change.answer, "alarm", change.raised ? "raised" : "cleared");
    line["condition"] = condition_text(*change.answer.instance.alarm);
    add_details(line, change.answer);
    write(line);
  }

  void reported(const Report& report) override {
    Json line;
    line["time"] = iso8601(report.time);
    line["kind"] = "report";
    line["key"] = {{"resType", report.res_type},
                   {"errCode", err_code_text(report)},
                   {"resId", report.res_id},
                   {"rptType", report.rpt_type}};
    line["params"] = Json::array();
    for (const Param& param : report.params) {
      line["params"].push_back({{"name", param.name}, {"value", param.value}});
    }
    line["description"] = report.description;
    line["function"] = report.function ? Json(*report.function) : Json();
    line["line"] = report.function ? Json(report.line) : Json();
    write(line);
    log_line("event", report_text(report));  // the log has it as well
  }

 private:
  static Json with_value(const Answer& answer, const char* kind, const char* state) {
    Json line = beginning(answer.time, kind, answer.instance, state);
    line["value"] = answer.valid() ? number(*answer.instance.item, answer.value) : Json();
    line["unit"] = answer.instance.unit;
    line["pid"] = answer.pid() ? Json(*answer.pid()) : Json();
    return line;
  }

  static void add_details(Json& line, const Answer& answer) {
    if (answer.thread()) {
      const std::optional<ThreadOwner>& owner = answer.thread_owner;
      line["tid"] = *answer.thread();
      line["process"] = owner ? Json(owner->pid) : Json();
      line["cmdline"] = owner ? Json(owner->command_line) : Json();
    }
    if (answer.flow_id()) line["hangflowid"] = *answer.flow_id();
  }

  static Json beginning(WallTime time, const char* kind, const Instance& instance,
                        const char* state) {
    Json line;
    line["time"] = iso8601(time);
    line["kind"] = kind;
    line["instance"] = instance.name;
    line["item"] = instance.item->name;
    line["state"] = state;
    return line;
  }

  void write(const Json& line) { out_.write_line(json_text(line)); }

  LineWriter& out_;
};

}  // namespace

std::unique_ptr<Reporter> report_as_json(LineWriter& out) {
  return std::make_unique<JsonReporter>(out);
}

#include <cmath>

#include "item/alarm_rule.h"
#include "output/reporter.h"
#include "text/json_text.h"
#include "text/log_lines.h"

namespace {

Json number(const ItemRow& item, double value) {
  if (item.returns == Returns::kInt && std::isfinite(value)) return static_cast<int>(value);
  return json_number(value);
}

class JsonReporter final : public Reporter {
 public:
  explicit JsonReporter(LineQueue& out) : out_(out) {}

  void answered(const Answer& answer) override {
    Json line = with_value(answer, "item", state_name(answer.state));
    line["result"] = answer.result.result;
    line["reason"] = answer.valid() ? "" : answer.result.reason;
    if (!answer.finding.detail.empty()) line["detail"] = answer.finding.detail;
    add_details(line, answer);
    if (!answer.note.empty()) line["note"] = answer.note;
    if (!answer.alarms.empty()) line["alarms"] = answer.alarms;
    if (answer.called_since) {
      line["late"] = true;
      line["since"] = iso8601(*answer.called_since);
    }
    const bool lasting = answer.state_is_new || answer.of_alarm;
    write(line, lasting ? Weight::kLasting : Weight::kOrdinary);
  }

  void went_blind(const Blindness& blindness) override {
    Json line = beginning(blindness.time, "item", blindness.instance, state_name(State::kBlind));
    line["value"] = nullptr;
    line["unit"] = blindness.instance.unit;
    line["pid"] = nullptr;
    line["result"] = nullptr;
    line["reason"] = "no answer before the deadline";
    if (!blindness.detail.empty()) line["detail"] = blindness.detail;
    line["since"] = iso8601(blindness.since);
    write(line, Weight::kLasting);
  }

  void alarm_changed(const AlarmChange& change) override {
    const char* const state = change.raised ? "raised" : "cleared";
    Json line = change.answer ? with_value(*change.answer, "alarm", state)
                              : beginning(change.time, "alarm", change.instance, state);
    line["alarm"] = change.id;
    line["severity"] = severity_name(change.rule.severity);
    line["condition"] = condition_text(change.rule);
    if (!change.cause.empty()) line["cause"] = change.cause;
    line["instance_state"] = state_name(change.state);
    if (change.answer) add_details(line, *change.answer);
    write(line, Weight::kLasting);
    if (out_.closed()) log_line("event", change.instance.name + " alarm " + change_text(change));
  }

  void lay_out(const std::vector<Instance>& /*instances*/) override {}

  void happened(const std::string& text) override {
    Json line = numbered(std::chrono::system_clock::now(), "event");
    line["text"] = text;
    write(line, Weight::kLasting);
    if (out_.closed()) log_line("event", text);
  }

  void reported(const Report& report) override {
    Json line = numbered(report.time, "report");
    line["instance"] = text_or_null(report.origin.instance);
    line["alarm"] = text_or_null(report.origin.alarm);
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
    write(line, Weight::kLasting);
    log_line("event", report_text(report));
  }

 private:
  using Weight = LineQueue::Weight;

  Json with_value(const Answer& answer, const char* kind, const char* state) {
    Json line = beginning(answer.time, kind, answer.instance, state);
    const Json value = number(*answer.instance.item, answer.value);
    line["value"] = answer.has_value() ? value : Json();
    line["unit"] = answer.instance.unit;
    line["pid"] = answer.pid() ? Json(*answer.pid()) : Json();
    line["answer"] = value;
    return line;
  }

  static Json text_or_null(const std::string& text) { return text.empty() ? Json() : Json(text); }

  static void add_details(Json& line, const Answer& answer) {
    if (answer.thread()) {
      const std::optional<ThreadOwner>& owner = answer.thread_owner;
      line["tid"] = *answer.thread();
      line["process"] = owner ? Json(owner->pid) : Json();
      line["cmdline"] = owner ? Json(owner->command_line) : Json();
      if (answer.evidence) line["evidence"] = evidence_json(answer);
    }
    if (answer.flow_id()) line["hangflowid"] = *answer.flow_id();
  }

  Json beginning(WallTime time, const char* kind, const Instance& instance, const char* state) {
    Json line = numbered(time, kind);
    line["instance"] = instance.name;
    line["item"] = instance.item->name;
    line["state"] = state;
    return line;
  }

  Json numbered(WallTime time, const char* kind) {
    Json line = Json::object();
    line["time"] = iso8601(time);
    line["seq"] = ++written_;
    line["kind"] = kind;
    return line;
  }

  void write(const Json& line, Weight weight) { out_.push(json_text(line), weight); }

  unsigned long written_ = 0;
  LineQueue& out_;
};

}  // namespace

std::string loss_as_json(const LineQueue::Loss& loss) {
  Json line = Json::object();
  line["time"] = iso8601(std::chrono::system_clock::now());
  line["kind"] = "lost";
  line["lines"] = loss.ordinary + loss.lasting;
  line["values"] = loss.ordinary;
  line["others"] = loss.lasting;
  return json_text(line);
}

std::unique_ptr<Reporter> report_as_json(LineQueue& out) {
  return std::make_unique<JsonReporter>(out);
}

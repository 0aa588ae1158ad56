// Structured records of alarms, states, reports and events, beside the lines of another reporter.
#include <map>
#include <utility>

#include "output/reporter.h"
#include "service/journal.h"
#include "text/number_text.h"
#include "text/terminal_text.h"

namespace {

using Fields = std::vector<std::pair<const char*, std::string>>;

Priority priority_of(State state) {
  const bool is_trouble =
      state == State::kFailed || state == State::kBlind || state == State::kUnjudged;
  return is_trouble ? Priority::kWarning : Priority::kInformation;
}

// The reason for the state of the instance: the text of the item, then that of the monitor.
std::string reason_of(const Answer& answer) {
  std::string text = answer.valid() ? "" : answer.result.reason;
  for (const std::string* const more : {&answer.finding.detail, &answer.note}) {
    if (!more->empty()) text += (text.empty() ? "" : ", ") + *more;
  }
  return text.empty() ? "" : ": " + text;
}

Fields fields_of(const Instance& instance, State state) {
  return {{"MIRT_WATCH", instance.name},
          {"MIRT_ITEM", instance.item->name},
          {"MIRT_STATE", state_name(state)}};
}

void add_value(Fields& fields, const Answer& answer) {
  if (answer.has_value()) fields.emplace_back("MIRT_VALUE", number_text(answer.value));
  fields.emplace_back("MIRT_UNIT", answer.instance.unit);
  if (answer.pid()) fields.emplace_back("MIRT_PID", std::to_string(*answer.pid()));
}

class JournalReporter final : public Reporter {
 public:
  JournalReporter(std::unique_ptr<Reporter> beside, Journal& journal)
      : beside_(std::move(beside)), journal_(journal) {}

  void answered(const Answer& answer) override {
    beside_->answered(answer);
    if (answer.of_alarm || !is_news(answer.instance.name, answer.state)) return;
    Fields fields = fields_of(answer.instance, answer.state);
    add_value(fields, answer);
    send(kStateChangedId, priority_of(answer.state),
         answer.instance.name + " is " + state_name(answer.state) + reason_of(answer),
         std::move(fields));
  }

  void went_blind(const Blindness& blindness) override {
    beside_->went_blind(blindness);
    states_[blindness.instance.name] = State::kBlind;
    std::string text =
        blindness.instance.name + " is blind: no answer since " + for_people(blindness.since);
    if (!blindness.detail.empty()) text += ", waits " + blindness.detail;
    send(kWentBlindId, Priority::kWarning, text, fields_of(blindness.instance, State::kBlind));
  }

  void alarm_changed(const AlarmChange& change) override {
    beside_->alarm_changed(change);
    Fields fields = fields_of(change.instance, change.state);
    fields.emplace_back("MIRT_ALARM", change.id);
    fields.emplace_back("MIRT_SEVERITY", severity_name(change.rule.severity));
    fields.emplace_back("MIRT_CONDITION", condition_text(change.rule));
    fields.emplace_back("MIRT_CAUSE", change.cause);
    if (change.answer) add_value(fields, *change.answer);
    std::string text = change.instance.name + ": alarm " + change_text(change);
    if (!change.cause.empty()) text += ", " + change.cause;
    const bool is_critical = change.rule.severity == Severity::kCritical;
    const Priority raised = is_critical ? Priority::kCritical : Priority::kWarning;
    send(change.raised ? kAlarmRaisedId : kAlarmClearedId,
         change.raised ? raised : Priority::kNotice, text, std::move(fields));
  }

  void reported(const Report& report) override {
    beside_->reported(report);
    send(kReportSentId, Priority::kWarning, report_text(report),
         {{"MIRT_WATCH", report.origin.instance},
          {"MIRT_ALARM", report.origin.alarm},
          {"MIRT_ERRCODE", err_code_text(report)}});
  }

  void happened(const std::string& text) override {
    beside_->happened(text);
    send(kEventId, Priority::kNotice, text, {});
  }

  void lay_out(const std::vector<Instance>& instances) override { beside_->lay_out(instances); }

 private:
  // A first call with the state "ok" needs no record. An alarm has a record of its own.
  bool is_news(const std::string& instance, State state) {
    const auto known = states_.find(instance);
    const State before = known == states_.end() ? State::kOk : known->second;
    states_[instance] = state == State::kAlarm ? State::kOk : state;
    return state != before && state != State::kAlarm;
  }

  void send(const char* id, Priority priority, const std::string& text, Fields fields) {
    journal_.send({id, priority, printable(text), std::move(fields)});
  }

  const std::unique_ptr<Reporter> beside_;
  Journal& journal_;
  std::map<std::string, State> states_;  // the last one of each instance
};

}  // namespace

std::unique_ptr<Reporter> report_to_journal(std::unique_ptr<Reporter> beside, Journal& journal) {
  return std::make_unique<JournalReporter>(std::move(beside), journal);
}

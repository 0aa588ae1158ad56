#include <algorithm>
#include <cmath>
#include <cstdio>

#include "output/reporter.h"
#include "text/log_lines.h"
#include "text/number_text.h"
#include "text/terminal_text.h"

namespace {

constexpr size_t kValueWidth = 10;

std::string rounded(const ItemRow& item, double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", item.returns == Returns::kInt ? 0 : 2, value);
  return text;
}

class PeopleReporter final : public Reporter {
 public:
  PeopleReporter(LineQueue& out, bool colour) : out_(out), colour_(colour) {}

  void lay_out(const std::vector<Instance>& instances) override {
    name_width_ = unit_width_ = 0;
    for (const Instance& instance : instances) {
      name_width_ = std::max(name_width_, width_of(instance.name));
      unit_width_ = std::max(unit_width_, width_of(instance.unit));
    }
  }

  void happened(const std::string& text) override {
    write(for_people(std::chrono::system_clock::now()) + "  " + printable(text), Weight::kLasting);
    if (out_.closed()) log_line("event", text);
  }

  void answered(const Answer& answer) override {
    const bool shows_value = answer.finding.measured() || (answer.of_alarm && answer.valid());
    std::string line =
        shows_value ? beginning(answer.time, answer.instance,
                                rounded(*answer.instance.item, answer.value), answer.instance.unit)
                    : beginning(answer.time, answer.instance, state_name(answer.finding.state), "");
    line += owner_text(answer);
    if (answer.flow_id()) line += "  flow " + std::to_string(*answer.flow_id());
    if (answer.called_since) line += "  late, called " + for_people(*answer.called_since);
    if (!shows_value) line += "  " + reason_text(answer);
    if (!answer.note.empty()) line += "  " + printable(answer.note);
    const bool lasting = answer.state_is_new || answer.of_alarm;
    write(std::move(line), lasting ? Weight::kLasting : Weight::kOrdinary);
  }

  void went_blind(const Blindness& blindness) override {
    std::string line = beginning(blindness.time, blindness.instance, state_name(State::kBlind), "");
    std::string text = "no answer since " + for_people(blindness.since);
    if (!blindness.detail.empty()) text += ", waits " + blindness.detail;
    write(std::move(line) + "  " + red(text), Weight::kLasting);
  }

  void alarm_changed(const AlarmChange& change) override {
    const bool has_value = change.answer && change.answer->has_value();
    std::string line =
        has_value
            ? beginning(change.time, change.instance,
                        rounded(*change.instance.item, change.answer->value), change.instance.unit)
            : beginning(change.time, change.instance, state_name(change.state), "");
    std::string text = "alarm " + change_text(change);
    if (!change.cause.empty()) text += ", " + change.cause;
    write(std::move(line) + "  " + (change.raised ? red(text) : printable(text)), Weight::kLasting);
    if (out_.closed()) log_line("event", change.instance.name + " " + text);
  }

  void reported(const Report& report) override {
    write(for_people(report.time) + "  " + red(report_text(report)), Weight::kLasting);
    if (out_.closed()) log_line("event", report_text(report));
  }

 private:
  using Weight = LineQueue::Weight;

  // Why there is no value: the item's reason, if any, then the monitor's detail.
  std::string reason_text(const Answer& answer) const {
    std::string text = answer.valid() ? "" : answer.result.reason;
    if (!answer.finding.detail.empty()) text += (text.empty() ? "" : " ") + answer.finding.detail;
    if (answer.finding.state == State::kUnjudged) {
      text += " (the item returned " + rounded(*answer.instance.item, answer.value) + ")";
    }
    if (answer.of_alarm) text = std::string(answer.instance.item->name) + ": " + text;
    return answer.finding.state == State::kAbsent ? printable(text) : red(text);
  }

  // Time, instance, value and unit.
  std::string beginning(WallTime time, const Instance& instance, const std::string& value,
                        const std::string& unit) const {
    return for_people(time) + "  " + left(printable(instance.name), name_width_) + "  " +
           right(value, kValueWidth) + " " + left(printable(unit), unit_width_);
  }

  static std::string owner_text(const Answer& answer) {
    const int id = answer.pid().value_or(0);
    if (id == 0) return "";
    if (!answer.thread()) return "  pid " + std::to_string(id);
    std::string thread = "  thread " + std::to_string(id);
    if (!answer.thread_owner) return thread;
    thread += " of process " + std::to_string(answer.thread_owner->pid) + ": " +
              printable(answer.thread_owner->command_line);
    return thread + evidence_text(answer);
  }

  static std::string evidence_text(const Answer& answer) {
    if (!answer.evidence) return "";
    const ThreadEvidence& evidence = *answer.evidence;
    std::string text = ", has not run for " + number_text(std::round(answer.standing_s)) + " s";
    if (!evidence.wchan.empty()) text += " in " + printable(evidence.wchan);
    if (evidence.same_stack > 1) {
      text += ", " + std::to_string(evidence.same_stack) + " threads with this stack";
    }
    if (!evidence.suspected.empty()) text += ", suspected: " + evidence.suspected;
    return text;
  }

  std::string red(const std::string& text) const { return ::red(printable(text), colour_); }

  void write(std::string line, Weight weight) {
    line.erase(line.find_last_not_of(' ') + 1);
    out_.push(std::move(line), weight);
  }

  LineQueue& out_;
  bool colour_;
  size_t name_width_ = 0;
  size_t unit_width_ = 0;
};

}  // namespace

std::string loss_for_people(const LineQueue::Loss& loss) {
  return for_people(std::chrono::system_clock::now()) + "  " +
         std::to_string(loss.ordinary + loss.lasting) + " lines lost (" +
         std::to_string(loss.ordinary) +
         " of values): the output was not read, or memory was short";
}

std::unique_ptr<Reporter> report_to_people(LineQueue& out, bool colour) {
  return std::make_unique<PeopleReporter>(out, colour);
}

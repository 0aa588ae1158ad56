#include <algorithm>
#include <cstdio>
#include <cstring>

#include "item/alarm_rule.h"
#include "output/reporter.h"
#include "text/terminal_text.h"

namespace {

constexpr char kRed[] = "\033[31m";
constexpr char kPlain[] = "\033[0m";
constexpr size_t kValueWidth = 10;

std::string rounded(const ItemRow& item, double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", item.returns == Returns::kInt ? 0 : 2, value);
  return text;
}

class PeopleReporter final : public Reporter {
 public:
  PeopleReporter(LineWriter& out, const std::vector<Instance>& instances, bool colour)
      : out_(out), colour_(colour) {
    for (const Instance& instance : instances) {
      name_width_ = std::max(name_width_, width_of(instance.name));
      unit_width_ = std::max(unit_width_, width_of(instance.unit));
    }
  }

  void answered(const Answer& answer) override {
    const bool has_value = answer.valid();
    std::string line =
        has_value ? beginning(answer.time, answer.instance,
                              rounded(*answer.instance.item, answer.value), answer.instance.unit)
                  : beginning(answer.time, answer.instance, "failed", "");
    line += owner_text(answer);
    if (answer.flow_id()) line += "  flow " + std::to_string(*answer.flow_id());
    if (answer.called_since) line += "  late, called " + for_people(*answer.called_since);
    if (!has_value) {
      const std::string sender =
          answer.of_alarm ? std::string(answer.instance.item->name) + ": " : "";
      line += "  " + red(sender + answer.result.reason);
    }
    write(std::move(line));
  }

  void went_blind(const Blindness& blindness) override {
    std::string line = beginning(blindness.time, blindness.instance, "blind", "");
    write(std::move(line) + "  " + red("no answer since " + for_people(blindness.since)));
  }

  void alarm_changed(const AlarmChange& change) override {
    const Answer& answer = change.answer;
    const AlarmRule& rule = *answer.instance.alarm;
    const unsigned calls = change.raised ? rule.raise_after : rule.clear_after;
    const std::string text = change.raised ? "alarm raised" : "alarm cleared";
    const std::string reason = (change.raised ? ": " : ": not ") + condition_text(rule) + " for " +
                               std::to_string(calls) + (calls == 1 ? " call" : " calls");
    std::string line =
        beginning(answer.time, answer.instance, rounded(*answer.instance.item, answer.value),
                  answer.instance.unit);
    write(std::move(line) + "  " + (change.raised ? red(text) : text) + reason);
  }

  void reported(const Report& report) override {
    write(for_people(report.time) + "  " + red(report_text(report)));
  }

 private:
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
    return thread + " of process " + std::to_string(answer.thread_owner->pid) + ": " +
           printable(answer.thread_owner->command_line);
  }

  std::string red(const std::string& text) const {
    return colour_ ? kRed + printable(text) + kPlain : printable(text);
  }

  void write(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    out_.write_line(std::move(line));
  }

  LineWriter& out_;
  bool colour_;
  size_t name_width_ = 0;
  size_t unit_width_ = 0;
};

}  // namespace

std::optional<int> Answer::pid() const {
  const Reports reports = instance.item->reports;
  const bool names_one = reports == Reports::kValueAndPid || reports == Reports::kValueAndThread;
  if (!valid() || !names_one) return std::nullopt;
  return result.pid;
}

std::optional<int> Answer::thread() const {
  const bool names_one = instance.item->reports == Reports::kValueAndThread && result.pid != 0;
  return names_one ? pid() : std::nullopt;
}

std::optional<unsigned> Answer::flow_id() const {
  const bool stopped =
      valid() && instance.item->reports == Reports::kValueAndFlowId && value == 0.0;
  if (!stopped) return std::nullopt;
  return result.hangflowid;
}

std::unique_ptr<Reporter> report_to_people(LineWriter& out, const std::vector<Instance>& instances,
                                           bool colour) {
  return std::make_unique<PeopleReporter>(out, instances, colour);
}

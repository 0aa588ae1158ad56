#include "config/config_text.h"

#include <charconv>
#include <cstdio>
#include <vector>

namespace {

// The shortest text from which the same number is read.
std::string exact_number(double number, std::chars_format format) {
  char text[512];
  const auto [end, error] = std::to_chars(text, text + sizeof text, number, format);
  return error == std::errc() ? std::string(text, end) : "0";
}

std::string number(double value) {
  return exact_number(value, std::chars_format::general);
}

std::string hold(const Hold& held) {
  if (held.seconds <= 0.0) return std::to_string(held.calls);
  return '"' + exact_number(held.seconds, std::chars_format::fixed) + " s\"";
}

template <typename Element, typename Text>
std::string array(const std::vector<Element>& elements, Text text) {
  std::string all;
  for (const Element& element : elements) all += (all.empty() ? "" : ", ") + text(element);
  return '[' + all + ']';
}

std::string line(const std::string& key, const std::string& value) {
  return key + " = " + value + '\n';
}

std::string param(const Param& one) {
  return "{ name = " + toml_text(one.name) + ", value = " + toml_text(one.value) + " }";
}

std::string report_line(const std::optional<AlarmReport>& report) {
  if (!report) return "";
  return line("report", "{ item = " + toml_text(report->item->name) +
                            ", params = " + array(report->params, param) + " }");
}

std::string condition_lines(const AlarmRule& rule) {
  if (rule.condition == AlarmRule::Condition::kNone) return "";
  const char* const key = rule.condition == AlarmRule::Condition::kAbove   ? "above"
                          : rule.condition == AlarmRule::Condition::kBelow ? "below"
                                                                           : "equals";
  std::string text = line(key, number(rule.bound));
  if (rule.clear_bound) text += line("clear", number(*rule.clear_bound));
  return text;
}

// Leaves out keys that have their default value.
std::string alarm_table(const AlarmRule& rule) {
  const std::string once = hold({});
  std::string text = "[[instance.alarm]]\n" + condition_lines(rule);
  if (!rule.states.empty()) {
    text +=
        line("on", array(rule.states, [](State state) { return toml_text(state_name(state)); }));
  }
  if (hold(rule.raise_after) != once) text += line("for", hold(rule.raise_after));
  if (hold(rule.clear_after) != once) text += line("clear_for", hold(rule.clear_after));
  if (rule.severity != Severity::kCritical) {
    text += line("severity", toml_text(severity_name(rule.severity)));
  }
  if (!rule.alerts.empty()) text += line("alert", array(rule.alerts, toml_text));
  return text + report_line(rule.report);
}

std::string instance_table(const Instance& instance) {
  std::string text = "\n[[instance]]\n" + line("name", toml_text(instance.name)) +
                     line("item", toml_text(instance.item->name)) +
                     line("period", number(instance.period_s));
  if (instance.deadline_s != Instance().deadline_s) {
    text += line("deadline", number(instance.deadline_s));
  }
  if (instance.unit != instance.item->unit) text += line("unit", toml_text(instance.unit));
  if (!instance.params.empty()) text += line("params", array(instance.params, param));
  for (const AlarmRule& rule : instance.alarms) text += alarm_table(rule);
  return text;
}

// Adds quotes only if TOML needs them.
std::string toml_key(const std::string& name) {
  constexpr char kBare[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  return name.find_first_not_of(kBare) == std::string::npos ? name : toml_text(name);
}

std::string alert_table(const Alert& alert) {
  std::string text = "\n[alert." + toml_key(alert.name) + "]\n";
  if (!alert.command.empty()) text += line("command", array(alert.command, toml_text));
  if (!alert.webhook.empty()) text += line("webhook", toml_text(alert.webhook));
  if (alert.timeout_s != Alert().timeout_s) text += line("timeout", number(alert.timeout_s));
  if (alert.repeat_s > 0.0) text += line("repeat", number(alert.repeat_s));
  return text + report_line(alert.report);
}

std::string recovery_table(const Recovery& recovery) {
  const Recovery none;
  const bool is_usual = recovery.redundancy == none.redundancy &&
                        recovery.at_most == none.at_most && recovery.per_s == none.per_s &&
                        recovery.spare == none.spare;
  if (is_usual) return "";
  const char* const word = recovery.redundancy == Recovery::Redundancy::kDeny    ? "deny"
                           : recovery.redundancy == Recovery::Redundancy::kAllow ? "allow"
                                                                                 : "command";
  std::string text = "\n[recovery]\n" + line("redundancy", toml_text(word));
  if (!recovery.command.empty()) text += line("command", toml_text(recovery.command));
  return text + line("at_most", std::to_string(recovery.at_most)) +
         line("per", number(recovery.per_s)) + line("spare", array(recovery.spare, toml_text));
}

}  // namespace

std::string toml_text(const std::string& text) {
  std::string quoted = "\"";
  for (const char letter : text) {
    const auto code = static_cast<unsigned char>(letter);
    if (letter == '"' || letter == '\\') {
      quoted += std::string("\\") + letter;
    } else if (code < ' ' || code == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", code);
      quoted += escape;
    } else {
      quoted += letter;
    }
  }
  return quoted + '"';
}

std::string config_text(const Plan& config) {
  std::string text;
  if (!config.state_file.empty()) text += line("state", toml_text(config.state_file));
  if (config.workers > 0) text += line("workers", std::to_string(config.workers));
  if (!config.status_socket.empty()) {
    text += "\n[status]\n" + line("socket", toml_text(config.status_socket));
  }
  if (config.http) {
    text += "\n[http]\n" + line("listen", toml_text(config.http->address.text));
    if (config.http->exposes_page) text += line("expose", "[\"page\"]");
  }
  if (config.metrics_file) {
    text += "\n[metrics]\n" + line("textfile", toml_text(config.metrics_file->path)) +
            line("every", number(config.metrics_file->every_s));
  }
  text += recovery_table(config.recovery);
  for (const Alert& alert : config.alerts) text += alert_table(alert);
  for (const Instance& instance : config.instances) text += instance_table(instance);
  return text;
}

#include "output/reporter.h"

#include "item/alarm_rule.h"

bool Answer::has_value() const {
  return finding.measured() || finding.state == State::kUnjudged;
}

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

std::string change_text(const AlarmChange& change) {
  const Hold& hold = change.raised ? change.rule.raise_after : change.rule.clear_after;
  return (change.raised ? "raised: " : "cleared: not ") + condition_text(change.rule) + " for " +
         hold_text(hold);
}

Json evidence_json(const Answer& answer) {
  const ThreadEvidence& evidence = *answer.evidence;
  Json json = Json::object();
  json["tid"] = evidence.tid;
  json["name"] = evidence.name;
  json["state"] = evidence.state;
  json["wchan"] = evidence.wchan.empty() ? Json() : Json(evidence.wchan);
  json["stack"] = evidence.stack.empty() ? Json() : Json(evidence.stack);
  json["voluntary_switches"] = evidence.voluntary_switches;
  json["involuntary_switches"] = evidence.involuntary_switches;
  json["standing_seconds"] = answer.standing_s;
  json["threads_with_this_stack"] = evidence.same_stack;
  json["suspected"] = evidence.suspected.empty() ? Json() : Json(evidence.suspected);
  return json;
}

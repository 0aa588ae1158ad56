#include "item/plan.h"

#include <algorithm>
#include <tuple>

namespace {

template <typename T, typename Same>
bool same_all(const std::vector<T>& a, const std::vector<T>& b, Same same) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

bool same_param(const Param& a, const Param& b) {
  return a.name == b.name && a.value == b.value;
}

bool same_params(const std::vector<Param>& a, const std::vector<Param>& b) {
  return same_all(a, b, same_param);
}

bool same_report(const std::optional<AlarmReport>& a, const std::optional<AlarmReport>& b) {
  if (!a || !b) return a.has_value() == b.has_value();
  return a->item == b->item && same_params(a->params, b->params);
}

auto fields_of(const Hold& hold) {
  return std::tuple(hold.calls, hold.seconds);
}

bool same_rule(const AlarmRule& a, const AlarmRule& b) {
  const auto fields = [](const AlarmRule& rule) {
    return std::tuple(rule.condition, rule.bound, rule.clear_bound, rule.states,
                      fields_of(rule.raise_after), fields_of(rule.clear_after), rule.severity,
                      rule.alerts);
  };
  return fields(a) == fields(b) && same_report(a.report, b.report);
}

}  // namespace

bool same_watch(const Instance& a, const Instance& b) {
  const auto fields = [](const Instance& instance) {
    return std::tie(instance.name, instance.item, instance.period_s, instance.deadline_s,
                    instance.unit);
  };
  return fields(a) == fields(b) && same_params(a.params, b.params) &&
         same_all(a.alarms, b.alarms, same_rule);
}

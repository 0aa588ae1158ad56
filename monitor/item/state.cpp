#include "item/state.h"

#include <algorithm>
#include <iterator>

namespace {

struct StateName {
  State state;
  const char* name;
};
constexpr StateName kStateNames[] = {{State::kOk, "ok"},          {State::kAlarm, "alarm"},
                                     {State::kAbsent, "absent"},  {State::kUnjudged, "unjudged"},
                                     {State::kFailed, "failed"},  {State::kBlind, "blind"},
                                     {State::kPending, "pending"}};

}  // namespace

const char* state_name(State state) {
  const auto* const row = std::find_if(std::begin(kStateNames), std::end(kStateNames),
                                       [&](const StateName& each) { return each.state == state; });
  return row->name;
}

std::optional<State> find_state(std::string_view name) {
  for (const StateName& row : kStateNames) {
    if (row.name == name) return row.state;
  }
  return std::nullopt;
}

#include "item/state.h"

#include <algorithm>
#include <iterator>

namespace {

struct Row {
  State state;
  const char* name;
};
constexpr Row kRows[] = {{State::kOk, "ok"},          {State::kAlarm, "alarm"},
                         {State::kAbsent, "absent"},  {State::kUnjudged, "unjudged"},
                         {State::kFailed, "failed"},  {State::kBlind, "blind"},
                         {State::kPending, "pending"}};

}  // namespace

const char* state_name(State state) {
  const auto* const row = std::find_if(std::begin(kRows), std::end(kRows),
                                       [&](const Row& each) { return each.state == state; });
  return row->name;
}

std::optional<State> find_state(std::string_view name) {
  for (const Row& row : kRows) {
    if (row.name == name) return row.state;
  }
  return std::nullopt;
}

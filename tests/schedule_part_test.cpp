// Rules of time and of alarms, each on exact numbers.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "proc/cpu_wait.h"
#include "run/alarm.h"
#include "run/gap_watch.h"
#include "run/standstill.h"
#include "run/start_time.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

TEST(NextStart, IsTheFirstMultipleOfThePeriodThatIsNotOver) {
  const auto at = [](auto since_zero) { return Clock::time_point(since_zero); };
  EXPECT_EQ(next_start(at(milliseconds(2000)), seconds(1)), at(seconds(2)));
  EXPECT_EQ(next_start(at(nanoseconds(2000000001)), seconds(1)), at(seconds(3)));
  EXPECT_EQ(next_start(at(milliseconds(2999)), seconds(1)), at(seconds(3)));
  EXPECT_EQ(next_start(at(seconds(100000)), seconds(7)), at(seconds(100002)));
}

TEST(GapWatch, SeesWhatIsLongerThanTheSleepAndWhatIsBusyInBetween) {
  const Clock::time_point start{seconds(1000)};
  const auto at = [&](int ms) { return start + milliseconds(ms); };
  GapWatch watch(start);
  EXPECT_EQ(watch.before_wait(at(5), at(100)), milliseconds(0));
  EXPECT_EQ(watch.after_wait(at(60)), milliseconds(0)) << "woken before the end";
  EXPECT_EQ(watch.before_wait(at(60), at(100)), milliseconds(0));
  EXPECT_EQ(watch.after_wait(at(119)), milliseconds(0)) << "a late wake-up like all others";
  EXPECT_EQ(watch.before_wait(at(120), at(200)), milliseconds(0));
  EXPECT_EQ(watch.after_wait(at(500)), milliseconds(300));
  EXPECT_EQ(watch.before_wait(at(700), at(720)), milliseconds(200)) << "stopped while awake";
  EXPECT_EQ(watch.after_wait(at(720)), milliseconds(0));

  EXPECT_EQ(watch.total_since(start), milliseconds(500));
  EXPECT_EQ(watch.total_since(at(400)), milliseconds(300)) << "a part of the first";
  EXPECT_EQ(watch.total_since(at(500)), milliseconds(200));
  EXPECT_EQ(watch.total_since(at(700)), milliseconds(0));
}

TEST(Standstill, OnlyTimeInWhichTheProcessCouldRunCounts) {
  Standstill heart(seconds(1));
  EXPECT_TRUE(heart.judge(milliseconds(900), milliseconds(100)));
  heart.reset();
  EXPECT_FALSE(heart.judge(milliseconds(900), milliseconds(101)));
  EXPECT_TRUE(heart.judge(milliseconds(901), milliseconds(900))) << "799 and 1 of it";
  heart.reset();
  EXPECT_FALSE(heart.judge(milliseconds(900), milliseconds(5000))) << "counts no less than nothing";
  EXPECT_FALSE(heart.judge(milliseconds(900), milliseconds(300)));
  EXPECT_FALSE(heart.excuse()) << "a sign of life: all before is forgotten";
  EXPECT_FALSE(heart.judge(milliseconds(900), milliseconds(300)));
  EXPECT_TRUE(heart.judge(milliseconds(900), milliseconds(300)));
}

TEST(Standstill, IsNotExcusedForEver) {
  Standstill heart(seconds(1));
  for (unsigned call = 1; call < Standstill::kMostInARow; ++call) {
    EXPECT_FALSE(call % 2 == 0 ? heart.excuse() : heart.judge(seconds(1), seconds(1)));
  }
  EXPECT_TRUE(heart.judge(seconds(1), seconds(1)));
  heart.reset();
  EXPECT_FALSE(heart.excuse());
}

TEST(LongestWait, IsThatOfOneThreadAndOneThatStillWaitsMayHaveWaitedAllTheTime) {
  const auto thread = [](int tid, int ran_ms, int waited_ms) {
    return ThreadTimes{tid, milliseconds(ran_ms), milliseconds(waited_ms)};
  };
  const std::vector<ThreadTimes> before{thread(1, 10, 10), thread(2, 500, 20), thread(3, 7, 7)};
  const std::vector<ThreadTimes> now{thread(1, 40, 50), thread(2, 800, 320), thread(4, 9, 900)};
  EXPECT_EQ(longest_wait(before, now, {}, seconds(1)), milliseconds(300))
      << "not the sum, and nothing of the thread that is new";
  EXPECT_EQ(longest_wait(before, now, {1}, seconds(1)), milliseconds(970));
  EXPECT_EQ(longest_wait(before, now, {2, 4}, seconds(1)), milliseconds(700));
  EXPECT_EQ(longest_wait({}, now, {1, 2}, seconds(1)), milliseconds(0));
}

char mark_of(Alarm::Change change) {
  if (change == Alarm::Change::kNone) return '-';
  return change == Alarm::Change::kRaised ? '^' : 'v';
}

// Each answer as a letter: o(k), a(bsent), u(njudged), f(ailed), b(lind), and for values h(igh),
// l(ow), n(ot a number). The changes: ^ raised, v cleared, - none.
std::string changes(const AlarmRule& rule, const std::string& answers) {
  Alarm alarm(rule);
  std::string changes;
  for (const char answer : answers) {
    const std::pair<State, double> row = answer == 'h'   ? std::pair(State::kOk, 91.0)
                                         : answer == 'l' ? std::pair(State::kOk, 12.0)
                                         : answer == 'n' ? std::pair(State::kOk, std::nan(""))
                                         : answer == 'a' ? std::pair(State::kAbsent, 0.0)
                                         : answer == 'u' ? std::pair(State::kUnjudged, 99.0)
                                         : answer == 'f' ? std::pair(State::kFailed, 99.0)
                                                         : std::pair(State::kBlind, 99.0);
    changes += mark_of(alarm.judge(row.first, row.second, Alarm::Clock::time_point{}));
  }
  return changes;
}

TEST(Alarm, IsMovedByMeasuredValuesAndByTheStatesItAsksForAlone) {
  AlarmRule above;
  above.condition = AlarmRule::Condition::kAbove;
  above.bound = 90.0;
  AlarmRule slow = above;
  slow.raise_after.calls = 3;
  slow.clear_after.calls = 2;
  AlarmRule failing = above;
  failing.states = {State::kFailed, State::kBlind};
  failing.raise_after.calls = 2;
  AlarmRule absence;
  absence.states = {State::kAbsent};
  const std::tuple<const char*, AlarmRule, const char*, const char*> rows[] = {
      {"values", above, "lhhlh", "-^-v^"},
      {"nothing else raises or clears", above, "aufbnhaufbnl", "-----^-----v"},
      {"a row goes on after what says nothing", slow, "hhuhlal", "---^--v"},
      {"a row is broken by the other value", slow, "hhlhhhlhll", "-----^---v"},
      {"states asked for count like the value", failing, "fbul", "-^-v"},
      {"value and state make one row", failing, "hf", "-^"},
      {"the value counts no more once raised by a state", failing, "ffhl", "-^-v"},
      {"a state alone", absence, "luaafl", "--^--v"}};
  for (const auto& [name, rule, answers, expected] : rows) {
    EXPECT_EQ(changes(rule, answers), expected) << name;
  }
}

// Values each a second apart; the changes as above.
std::string changes_of(const AlarmRule& rule, const std::vector<double>& values) {
  Alarm alarm(rule);
  std::string changes;
  Alarm::Clock::time_point now{};
  for (const double value : values) {
    changes += mark_of(alarm.judge(State::kOk, value, now));
    now += seconds(1);
  }
  return changes;
}

TEST(Alarm, ComparesInTheItemsPrecisionWithABoundOfItsOwnForTheEnd) {
  AlarmRule rule;
  rule.condition = AlarmRule::Condition::kAbove;
  rule.bound = 12.3;
  EXPECT_EQ(changes_of(rule, {12.3F, 12.31, 12.3F}), "-^v");
  rule.clear_bound = 10;
  EXPECT_EQ(changes_of(rule, {12.4, 11, 10.1, 10, 11, 12.4}), "^--v-^");
  rule.condition = AlarmRule::Condition::kBelow;
  rule.clear_bound = 20;
  EXPECT_EQ(changes_of(rule, {12.3F, 12.2, 19, 20, 19}), "-^-v-");
  rule.condition = AlarmRule::Condition::kEquals;
  rule.clear_bound.reset();
  EXPECT_EQ(changes_of(rule, {12.2, 12.3F, 12.4}), "-^v");
  rule.condition = AlarmRule::Condition::kNone;
  EXPECT_EQ(changes_of(rule, {12.3F, 0}), "--");
}

TEST(Alarm, LastsForItsTimeFromTheFirstAnswerOfARow) {
  AlarmRule rule;
  rule.condition = AlarmRule::Condition::kAbove;
  rule.raise_after.seconds = 3.0;
  rule.clear_after.seconds = 1.5;
  EXPECT_EQ(changes_of(rule, {1, 1, 1, 0, 1, 1, 1, 1, 0, 0, 1, 0, 0, 0}), "-------^-----v");
  Alarm restored(rule);
  restored.restore();
  EXPECT_TRUE(restored.raised());
}

}  // namespace

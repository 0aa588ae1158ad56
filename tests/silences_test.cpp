// Silences: which are in force, and that they outlast being written and read.
#include "alert/silences.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

const WallTime kNow = std::chrono::system_clock::from_time_t(1800000000) + milliseconds(250);

TEST(Silences, AreAboutANameOrAGlobUntilTheirTime) {
  Silences silences;
  EXPECT_TRUE(silences.add({"database.*", kNow + hours(2), "upgrade", kNow}));
  EXPECT_TRUE(silences.add({"machine.disk:/var?", kNow + hours(1), "", kNow}));
  EXPECT_TRUE(silences.add({"odd[1]", kNow + hours(1), "", kNow}));
  EXPECT_TRUE(silences.add({"data*", kNow + hours(1), "", kNow}));

  ASSERT_NE(silences.matching("database.memory", kNow), nullptr);
  EXPECT_EQ(silences.matching("database.memory", kNow)->reason, "upgrade") << "it lasts longer";
  EXPECT_TRUE(silences.matches("database.", kNow));
  EXPECT_FALSE(silences.matches("my.database.memory", kNow));
  EXPECT_TRUE(silences.matches("machine.disk:/var/", kNow)) << "a slash is a character like others";
  EXPECT_FALSE(silences.matches("machine.disk:/var", kNow));
  EXPECT_TRUE(silences.matches("odd[1]", kNow)) << "as a name";
  EXPECT_TRUE(silences.matches("odd1", kNow)) << "as a glob";

  EXPECT_TRUE(silences.matches("machine.disk:/var2", kNow + hours(1) - milliseconds(1)));
  EXPECT_FALSE(silences.matches("machine.disk:/var2", kNow + hours(1)));
  EXPECT_EQ(silences.expire(kNow).size(), 0U);
  const std::vector<Silence> expired = silences.expire(kNow + hours(1));
  ASSERT_EQ(expired.size(), 3U);
  EXPECT_EQ(expired[0].pattern, "machine.disk:/var?");
  EXPECT_EQ(silences.list().size(), 1U);
}

TEST(Silences, ReplaceThoseOfTheSamePatternAndAreBounded) {
  Silences silences;
  for (size_t i = 0; i < Silences::kMost; ++i) {
    ASSERT_TRUE(silences.add({"a" + std::to_string(i), kNow + hours(1)}));
  }
  EXPECT_FALSE(silences.add({"b", kNow}));
  EXPECT_TRUE(silences.add({"a7", kNow + hours(9)}));
  const auto removed = silences.remove("a7");
  ASSERT_TRUE(removed);
  EXPECT_EQ(removed->until, kNow + hours(9));
  EXPECT_FALSE(silences.remove("a7"));
  EXPECT_FALSE(silences.remove("a*")) << "a pattern is removed as it was given";
}

TEST(Silences, AreReadAsTheyWereWrittenAndOnlyAsAWhole) {
  const Silence silence{"d\"*", kNow + hours(2), "\xc3\xa4 \n", kNow};
  const Json whole = Json::parse(json_text(json_of(silence)));
  const auto read = silence_of(whole);
  ASSERT_TRUE(read) << whole;
  EXPECT_EQ(std::tie(read->pattern, read->until, read->reason, read->since),
            std::tie(silence.pattern, silence.until, silence.reason, silence.since));
  for (const auto& [member, value] : whole.items()) {
    Json damaged = whole;
    damaged[member] = 1;
    EXPECT_FALSE(silence_of(damaged)) << member;
  }
  EXPECT_FALSE(silence_of(Json::array()));
}

}  // namespace
